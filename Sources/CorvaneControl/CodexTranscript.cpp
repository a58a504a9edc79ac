#include "CorvaneControl/CodexTranscript.h"
