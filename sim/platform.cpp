// platform.h over the simulated machine.
#include "platform/platform.h"
