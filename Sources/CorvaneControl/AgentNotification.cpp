#include "CorvaneControl/AgentNotification.h"
