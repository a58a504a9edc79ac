#include "CorvaneControl/Platform/Patterns.h"
