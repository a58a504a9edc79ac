#include "CorvaneControl/ControlCommandLine.h"
