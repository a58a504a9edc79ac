#include "CorvaneControl/Platform/PropertyList.h"
