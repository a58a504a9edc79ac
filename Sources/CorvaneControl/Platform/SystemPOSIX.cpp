#include "CorvaneControl/Platform/System.h"
