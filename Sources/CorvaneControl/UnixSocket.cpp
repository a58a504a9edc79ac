#include "CorvaneControl/UnixSocket.h"
