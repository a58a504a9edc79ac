# The proof that what Scripts/release built works on the systems that it is for: read by that script.

# Programs of another processor run several times slower than ours (seconds; 60 otherwise).
emulated_patience=240
# Left out: these count what the library costs, by their own build of it, and run none of the programs.
not_tested='/Cost\.'
# Left out under emulation: the emulator needs more memory than these tests leave, makes system calls of its own,
# tells a program a place where it cannot be run from, and stops for good at SIGTSTP where nobody could continue it
# (POSIX, orphaned process groups: the signal is to do nothing there).
not_emulated="$not_tested"'|^(Notify\.runningOutOfMemory.*|.*/Bundle(Version|Identifier)\..*|.*[tT]heToolBesideItself.*'
not_emulated+='|Corvanectl\.saysThatThereIsNotEnoughMemory|Serving\.refusesAClientThatThereIsNoMemoryFor'
not_emulated+='|ConsoleWithoutATerminal\.keepsNoLineOfAPipeThatDoesNotEnd|Scripts\.faults'
not_emulated+='|Console\.goesOnWhereNobodyCouldContinueIt'
not_emulated+='|DemoTest\..*|Scripts\.demo|ReadmeExamples\.theDemonstration.*)$'

processors=$(getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)

# --- Linux: the programs are run -----------------------------------------------------------------------

# One build of the tests serves for all targets: the programs that it runs are put into $tested.
tests=$cross/tests
tested=$tests/tested
tests_are_built=false

build_tests() {
  if $tests_are_built; then return; fi
  say 'Building the end-to-end tests.'
  quietly cmake -G Ninja -S "$root" -B "$tests" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 \
    -DCORVANE_TESTS=ON -DCORVANE_TESTED="$tested"
  cmake --build "$tests" --target end-to-end-tests | Scripts/digest
  tests_are_built=true
}

# lend TARGET PROGRAM: puts the program where the tests look for it; for another processor one that
# hands it to the emulator.
lend() {
  local target=$1 program=$2
  local place=$tested/Sources/$program/$program released=$dist/$target/$program
  local processor=${target%%-*}
  mkdir -p "${place%/*}"
  rm -f "$place"
  if [[ $processor == "$(uname -m)" ]]; then
    cp "$released" "$place"
    return
  fi
  local emulator
  emulator=$(command -v "qemu-$processor-static") || stop "qemu-$processor-static is missing."
  # No script: a shell has its own ideas about a current folder that is gone.
  cc -x c -DEMULATOR="\"$emulator\"" -DPROGRAM="\"$released\"" -o "$place" - <<'END'
#include <unistd.h>
int main(int count, char** words) {
  char* all[count + 2];
  all[0] = EMULATOR;
  all[1] = PROGRAM;
  for (int i = 1; i <= count; i++) all[i + 1] = words[i];
  execv(EMULATOR, all);
  return 127;
}
END
}

check_linux() {
  local target=$1 program log=$cross/$1/check.log
  local left_out=$not_tested lent=(CORVANE_TESTED_C_LIBRARY=musl) remark=
  Tests/Structure/check-hardening "$cross/$target/corvane/Sources/CorvaneControl/libCorvaneControl.a" \
    "${programs[@]/#/$dist/$target/}"
  Tests/Structure/check-order "$dist/$target/corvanectl"
  build_tests
  for program in "${programs[@]}"; do
    lend "$target" "$program"
  done
  if [[ ${target%%-*} != "$(uname -m)" ]]; then
    left_out=$not_emulated
    remark=', under emulation, without those that it has no place or memory for'
    lent+=(CORVANE_TEST_PATIENCE="$emulated_patience")
  fi
  say "Running the end-to-end tests against the programs for $target."
  (cd "$tests" && env "${lent[@]}" ctest --parallel "$processors" --output-on-failure --no-tests=error \
    --label-regex '^end-to-end$' --exclude-regex "$left_out") | tee "$log" | Scripts/digest
  passed+=("$target: $(grep 'tests passed' "$log")$remark")
  local skipped
  skipped=$(Scripts/digest --skipped "$tests/Testing/Temporary/LastTest.log" | sed 's/^/    /')
  if [[ -n $skipped ]]; then passed+=("$skipped"); fi
}

# --- macOS: everything is compiled, and the programs are looked at -------------------------------------

# asks_of_system FILE: what a program for macOS (Mach-O, 64 bits) asks for, by its load commands: the
# oldest system that it runs on, its libraries, and whether it is signed, one a line.
asks_of_system() {
  local -a header
  read -r -a header < <(od -A n -v -t u4 -N 32 -w32 "$1")
  if [[ ${header[0]-} != $((0xfeedfacf)) ]]; then
    printf 'no program for macOS: %s\n' "$1"
    return
  fi
  od -A n -v -t u1 -j 32 -N "${header[5]}" -w1 "$1" | awk -v count="${header[4]}" '
    { bytes[NR - 1] = $1 }
    function word(at) {
      return bytes[at] + 256 * (bytes[at + 1] + 256 * (bytes[at + 2] + 256 * bytes[at + 3]))
    }
    function text(at, end, found) {
      for (; at < end && bytes[at]; at++) found = found sprintf("%c", bytes[at])
      return found
    }
    END {
      for (at = 0; count-- > 0; at += size) {
        kind = word(at)
        size = word(at + 4)
        if (size < 8 || at + size > NR) {
          print "broken load commands"
          exit
        }
        # LC_BUILD_VERSION; then LC_LOAD_DYLIB, its weak, exporting, lazy and upward kinds.
        if (kind == 50) printf "macOS %d.%d\n", bytes[at + 14] + 256 * bytes[at + 15], bytes[at + 13]
        if (kind == 29) print "signed"  # LC_CODE_SIGNATURE
        if (kind == 12 || kind == 2147483672 || kind == 2147483679 || kind == 32 || kind == 2147483683)
          print text(at + word(at + 8), at + size)
      }
    }'
}

# Headers of GoogleTest and Google Benchmark, which are the same for every system, in a folder apart
# from those of this one. Nothing is linked with them.
lend_test_headers() {
  local headers=$cross/headers
  rm -rf "$headers"
  mkdir -p "$headers/include"
  cp -R /usr/include/gtest /usr/include/benchmark "$headers/include/"
  touch "$headers/nothing.a"
  cat >"$headers/benchmarkConfig.cmake" <<END
add_library(benchmark::benchmark INTERFACE IMPORTED)
target_include_directories(benchmark::benchmark INTERFACE "$headers/include")
END
}

check_macos() {
  local target=$1 program asked all=$cross/$1/everything
  local wanted="macOS $oldest_macos"$'\n/usr/lib/libSystem.B.dylib'
  # That system runs nothing on this processor that is not signed; with no name, as by any linker.
  if [[ $target == aarch64-* ]]; then wanted+=$'\nsigned'; fi
  for program in "${programs[@]}"; do
    asked=$(asks_of_system "$dist/$target/$program")
    [[ $(sort <<<"$asked") == "$(sort <<<"$wanted")" ]] ||
      stop "$program for $target should ask for:" "$wanted" 'It asks for:' "$asked"
  done

  say "Compiling everything for $target."
  lend_test_headers
  configure "$target" "$root" "$all" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG='-O0 -fno-sanitize=all' \
    -DCORVANE_STATIC=ON -DCORVANE_TESTS=ON -DCORVANE_BENCHMARKS=ON -DCORVANE_WARNINGS_AS_ERRORS=ON \
    -DGTEST_INCLUDE_DIR="$cross/headers/include" -DGTEST_LIBRARY="$cross/headers/nothing.a" \
    -DGTEST_MAIN_LIBRARY="$cross/headers/nothing.a" -Dbenchmark_DIR="$cross/headers"
  # What compiles is all that counts: neither the tests nor what they need to run can be linked here.
  local -a objects
  mapfile -t objects < <(ninja -C "$all" -t targets all | sed -n 's/^\(.*\.o\): C\(XX\)\{0,1\}_COMPILER.*/\1/p')
  ((${#objects[@]})) || stop "There is nothing to compile for $target."
  cmake --build "$all" --target "${objects[@]}" | Scripts/digest
  passed+=("$target: all of ${#objects[@]} sources compile; both programs ask for macOS $oldest_macos and libSystem alone")
}

# --- All of them -------------------------------------------------------------------------------------

# What an archive holds, under its one folder.
archived='README.md
THIRD-PARTY-NOTICES
bin/corvane-headless
bin/corvanectl
share/bash-completion/completions/corvane-headless
share/bash-completion/completions/corvanectl
share/fish/vendor_completions.d/corvane-headless.fish
share/fish/vendor_completions.d/corvanectl.fish
share/man/man1/corvane-headless.1
share/man/man1/corvanectl.1
share/man/man7/corvane-control.7
share/zsh/site-functions/_corvane'

check_archive() {
  local name
  name=$(archive_name "$1")
  diff <(printf '%s\n' "$archived") <(tar -tzf "$dist/$name.tar.gz" | sed -n "s#^$name/\(.*[^/]\)\$#\1#p") >&2 ||
    stop "build/dist/$name.tar.gz should hold what the lines with < say."
}

passed=()

check() {
  check_archive "$1"
  case $1 in
    *-linux-musl) check_linux "$1" ;;
    *-macos) check_macos "$1" ;;
  esac
}
