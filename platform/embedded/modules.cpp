#include "platform/embedded/modules.h"

namespace embedded {

unsigned Modules::CountLoaded() const {
    return 0;
}

}  // namespace embedded
