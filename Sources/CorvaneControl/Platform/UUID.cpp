#include "CorvaneControl/Platform/UUID.h"
