# What every target of ours is compiled and linked with, said once. Nothing here reaches those who use
# the installed library.

add_library(CorvaneOptions INTERFACE)
target_compile_features(CorvaneOptions INTERFACE cxx_std_20)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

target_compile_options(CorvaneOptions INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast
  -Woverloaded-virtual -Wswitch-enum -Wimplicit-fallthrough -Wformat=2
  -ffunction-sections -fdata-sections)
if(CORVANE_WARNINGS_AS_ERRORS)
  target_compile_options(CorvaneOptions INTERFACE -Werror)
endif()

if(APPLE)
  target_link_options(CorvaneOptions INTERFACE -Wl,-dead_strip)
else()
  target_link_options(CorvaneOptions INTERFACE -Wl,--gc-sections)
endif()

if(CORVANE_SANITIZE)
  target_compile_options(CorvaneOptions INTERFACE
    -fsanitize=${CORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(CorvaneOptions INTERFACE -fsanitize=${CORVANE_SANITIZE})
endif()
if(CORVANE_FUZZ)
  # Only what is instrumented guides the fuzzer, the library above all.
  target_compile_options(CorvaneOptions INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(CORVANE_COVERAGE)
  target_compile_options(CorvaneOptions INTERFACE --coverage)
  target_link_options(CorvaneOptions INTERFACE --coverage)
  add_library(KeptCoverage OBJECT ${PROJECT_SOURCE_DIR}/Tests/Support/KeptCoverage.c)
endif()

# corvane_keep_coverage(target): a program that ends without the functions that it registers for its end,
# or by a signal, keeps what was counted of it.
function(corvane_keep_coverage target)
  if(CORVANE_COVERAGE AND NOT APPLE)  # whose linker wraps no function
    target_link_libraries(${target} PRIVATE KeptCoverage)
    target_link_options(${target} PRIVATE -Wl,--wrap=_exit)
  endif()
endfunction()

# corvane_link_program(target): what a program of ours is linked with. A static program starts in less
# than half the time of a dynamic one; macOS has no static programs, so there the library and what it
# stands on are linked in, and the system is not.
function(corvane_link_program target)
  target_link_libraries(${target} PRIVATE CorvaneControl CorvaneOptions)
  corvane_keep_coverage(${target})
  if(CORVANE_STATIC AND NOT APPLE)
    target_link_options(${target} PRIVATE -static)
  endif()
endfunction()
