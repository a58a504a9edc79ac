#include "CorvaneControl/OrderedJSON.h"
