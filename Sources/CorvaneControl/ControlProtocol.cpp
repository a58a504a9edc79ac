#include "CorvaneControl/ControlProtocol.h"
