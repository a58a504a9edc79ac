#include "CorvaneControl/Platform/Markdown.h"
