# What makes a fault in the programs harder to use, said once, for all that is linked into them:
# CMakeLists.txt reads this for our own code, and Scripts/release has the third-party libraries that it
# builds read it too (CMAKE_PROJECT_INCLUDE). What each costs: Documentation/decisions.

include(CheckCompilerFlag)
include(CheckLinkerFlag)

# corvane_harden(flag...): compiles with each of the flags that the compiler takes, for C and C++ alike.
function(corvane_harden)
  set(CMAKE_REQUIRED_FLAGS -Werror)
  foreach(flag IN LISTS ARGN)
    string(MAKE_C_IDENTIFIER "CORVANE_HAS${flag}" has)
    check_compiler_flag(C ${flag} ${has})
    if(${has})
      add_compile_options(${flag})
    endif()
  endforeach()
endfunction()

if(CORVANE_TARGET)
  # zig's driver takes the ordinary flag and drops it.
  add_compile_options("SHELL:-Xclang -stack-protector -Xclang 2")
else()
  corvane_harden(-fstack-protector-strong)
endif()
corvane_harden(-fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|amd64|AMD64)$" AND NOT APPLE)
  corvane_harden(-fcf-protection=full)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$" AND NOT APPLE)
  corvane_harden(-mbranch-protection=standard)
endif()

# The libraries of C and C++ check what they are called with. The first needs an optimiser, and the
# sanitizers look for themselves.
if(NOT CORVANE_SANITIZE)
  add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:SHELL:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3>")
endif()
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:-D_GLIBCXX_ASSERTIONS>")
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:SHELL:-U_LIBCPP_HARDENING_MODE -D_LIBCPP_HARDENING_MODE=_LIBCPP_HARDENING_MODE_FAST>")

# What the linker arranges once is read-only from then on, data lies apart from code, and the stack is
# no code. (zig's linker does the second always, and does not know the word.)
if(NOT APPLE)
  foreach(word relro now separate-code noexecstack)
    string(MAKE_C_IDENTIFIER "CORVANE_LINKS_${word}" links)
    check_linker_flag(C -Wl,-z,${word} ${links})
    if(${links})
      add_link_options(-Wl,-z,${word})
    endif()
  endforeach()
endif()
