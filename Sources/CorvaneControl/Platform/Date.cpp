#include "CorvaneControl/Platform/Date.h"
