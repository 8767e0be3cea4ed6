#include "faxjob/companion.h"
