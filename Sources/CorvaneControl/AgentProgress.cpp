#include "CorvaneControl/AgentProgress.h"
