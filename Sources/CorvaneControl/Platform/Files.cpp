#include "CorvaneControl/Platform/Files.h"
