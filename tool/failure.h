#pragma once

// How ksfax fails: exit codes that scripts rely on, and the two errors that lead to them.

#include <stdexcept>

namespace tool {

enum ExitCode {
    kDone = 0,
    kFailed = 1,
    kWrongUsage = 2,
    kRefused = 3,  // by the driver: a refused job, a cancelled dialog
};

// Something the user gave cannot be used. The text is one line: the file and line where there
// are such, what is wrong, what to do.
class UserError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The command line itself is wrong.
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace tool
