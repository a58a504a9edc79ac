#pragma once

#include <span>

/// Serves one command: lets the library decide what its words mean, exchanges one request with the
/// running application, prints what came of it, and ends the process. `notify` always ends it with
/// 0, so that no agent's hook fails because of this command. `words` are those of the command line
/// without the program's own name.
[[noreturn]] void drive(std::span<char*> words);
