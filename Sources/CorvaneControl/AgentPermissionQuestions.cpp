#include "CorvaneControl/AgentPermission.h"
