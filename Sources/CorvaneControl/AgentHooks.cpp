#include "CorvaneControl/AgentHooks.h"
