#pragma once

// The profile (INI file) service of the embedded machine.

#include "platform/embedded/machine.h"

namespace embedded {

class Profiles {
  public:
    explicit Profiles(Machine& machine) : machine_(machine) {}

  private:
    Machine& machine_;
};

}  // namespace embedded
