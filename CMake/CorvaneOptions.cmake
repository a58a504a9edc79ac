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
endif()

# corvane_link_program(target): what a program of ours is linked with. A static program starts in less
# than half the time of a dynamic one; macOS has no static programs, so there the library and what it
# stands on are linked in, and the system is not.
function(corvane_link_program target)
  target_link_libraries(${target} PRIVATE CorvaneControl CorvaneOptions)
  if(CORVANE_COVERAGE AND NOT APPLE)
    # They end without the functions that a program registers for its end: what was counted is kept.
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/Tests/Support/KeptCoverage.c)
    target_link_options(${target} PRIVATE -Wl,--wrap=_exit)
  endif()
  if(CORVANE_STATIC AND NOT APPLE)
    target_link_options(${target} PRIVATE -static)
  endif()
endfunction()
