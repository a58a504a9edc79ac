#include "CorvaneControl/Platform/Text.h"
