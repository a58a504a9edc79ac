#include "CorvaneControl/Platform/JSON.h"
