#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "Documentation/Pages.h"
#include "Support/ChildProcess.h"
#include "Support/TemporaryFolder.h"
#include "corvane-headless/HeadlessCorvane.h"

namespace {

namespace fs = std::filesystem;
using CorvaneTests::ChildOptions;
using CorvaneTests::ChildProcess;
using CorvaneTests::Ended;
using CorvaneTests::HeadlessCorvane;
using CorvaneTests::TemporaryFolder;
using Names = std::set<std::string>;

/// Runs a program that has to succeed, and gives what it printed.
std::string succeeds(const std::string& program, ChildOptions options) {
  const Ended ended = CorvaneTests::run(program, std::move(options));
  EXPECT_EQ(ended.status, 0) << program << "\n" << ended.output << ended.errors;
  return ended.output;
}

std::string cmake(std::vector<std::string> arguments,
                  std::map<std::string, std::string> environment = {}) {
  // Neither another install folder nor another tree's packages may come in from outside.
  environment.insert({{"CXX", CXX_COMPILER}, {"CXXFLAGS", CXX_FLAGS}});
  return succeeds(CMAKE_COMMAND, {.arguments = std::move(arguments),
                                  .environment = std::move(environment),
                                  .withoutEnvironment = {"DESTDIR", "CMAKE_PREFIX_PATH"}});
}

/// The files below a folder, by their paths in it.
Names filesBelow(const fs::path& folder) {
  Names files;
  if (!fs::exists(folder)) return files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (!entry.is_directory()) files.insert(entry.path().lexically_relative(folder).string());
  }
  return files;
}

/// The build folder's own notes of what was installed from it, put back at the end. One test at a
/// time has them.
class Notes {
 public:
  Notes() {
    EXPECT_EQ(::flock(lock_, LOCK_EX), 0);
    move(build_, kept_.path());
  }
  ~Notes() {
    for (const fs::path& note : notesIn(build_)) fs::remove(note);
    move(kept_.path(), build_);
    ::close(lock_);
  }
  Notes(const Notes&) = delete;
  Notes& operator=(const Notes&) = delete;

 private:
  static std::vector<fs::path> notesIn(const fs::path& folder) {
    std::vector<fs::path> notes;
    for (const auto& entry : fs::directory_iterator(folder)) {
      if (entry.path().filename().string().starts_with("install_manifest")) {
        notes.push_back(entry.path());
      }
    }
    return notes;
  }
  static void move(const fs::path& from, const fs::path& into) {
    for (const fs::path& note : notesIn(from)) {
      fs::copy_file(note, into / note.filename(), fs::copy_options::overwrite_existing);
      fs::remove(note);
    }
  }

  const fs::path build_ = CORVANE_BUILD_DIR;
  const TemporaryFolder kept_{};
  const int lock_ = ::open(CORVANE_BUILD_DIR, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
};

/// Installs this build below `prefix`, whole or one component of it.
void install(const std::string& prefix, const std::string& component = "") {
  std::vector<std::string> arguments{"--install", CORVANE_BUILD_DIR, "--prefix", prefix};
  if (!component.empty()) arguments.insert(arguments.end(), {"--component", component});
  cmake(std::move(arguments));
}

/// A place where this build is installed, whole or one component of it.
class Installed {
 public:
  explicit Installed(const std::string& component = "") {
    const Notes notes;
    install(prefix(), component);
  }
  std::string prefix() const { return folder_.path("usr"); }
  Names files() const { return filesBelow(prefix()); }

  /// The folder that holds a file with that name.
  std::string folderOf(const std::string& name) const {
    for (const std::string& file : files()) {
      if (fs::path(file).filename() == name) return fs::path(prefix() + "/" + file).parent_path();
    }
    ADD_FAILURE() << name << " is not installed";
    return {};
  }

 private:
  const TemporaryFolder folder_{};
};

/// The headers that the page about the architecture lists as installed.
Names headersOnThePage() {
  Names headers;
  for (const auto& line :
       CorvaneTests::Markdown(CorvaneTests::page("Documentation/architecture.md")).lines) {
    if (line.section != "## What is installed") continue;
    for (const std::string& code : CorvaneTests::between(line.text, '`')) {
      if (code.ends_with(".h")) headers.insert("CorvaneControl/" + code);
    }
  }
  return headers;
}

TEST(Package, hasProgramsAndWhatBelongsToThemInOneComponentAndTheLibraryInTheOther) {
  const Names runtime = Installed("runtime").files();
  const Names development = Installed("development").files();
  for (const std::string& file : runtime) {
    EXPECT_TRUE(file.starts_with("bin/") || file.starts_with("share/")) << file;
  }
  for (const char* const program : {"corvanectl", "corvane-headless"}) {
    EXPECT_TRUE(runtime.contains(std::string("bin/") + program));
    EXPECT_TRUE(runtime.contains(std::string("share/man/man1/") + program + ".1"));
  }
  for (const std::string& file : development) {
    EXPECT_TRUE(file.starts_with("include/") || file.starts_with("lib")) << file;
  }
  Names both = runtime;
  both.insert(development.begin(), development.end());
  EXPECT_EQ(both.size(), runtime.size() + development.size());
  EXPECT_EQ(Installed().files(), both);
}

TEST(Package, hasThePublicHeadersThatThePageListsAndNoOthers) {
  const Names headers = filesBelow(Installed("development").prefix() + "/include");
  EXPECT_EQ(headers, headersOnThePage());
}

TEST(Package, hasEveryHeaderThatAPublicOneIncludes) {
  const Installed installed("development");
  const std::string include = installed.prefix() + "/include/";
  const Names headers = filesBelow(include);
  ASSERT_FALSE(headers.empty());
  for (const std::string& header : headers) {
    std::ifstream stream(include + header);
    for (std::string line; std::getline(stream, line);) {
      if (!line.starts_with("#include \"")) continue;
      const std::string name = CorvaneTests::between(line, '"').at(0);
      EXPECT_TRUE(headers.contains(name)) << header << " includes " << name;
    }
  }
}

/// What the two examples do with each other and with our programs.
void expectWorkingExamples(const std::string& folder) {
  const TemporaryFolder sockets;
  const std::string socket = sockets.path("s");
  ChildProcess application(folder + "/application", {.arguments = {socket}});
  ASSERT_TRUE(application.waitForOutput("Serving"));
  EXPECT_EQ(succeeds(folder + "/names", {.environment = {{"CORVANE_SOCKET", socket}}}),
            "Garden\nKitchen\n");
  HeadlessCorvane corvane;
  ASSERT_TRUE(corvane.process().waitForOutput("Serving"));
  EXPECT_EQ(
      succeeds(folder + "/names", {.environment = {{"CORVANE_SOCKET", corvane.socketPath()}}}),
      "Site\nStore\nMail\nNotes\n");
}

TEST(Package, isFoundByCMake) {
  const Installed installed("development");
  const TemporaryFolder build;
  cmake({"-S", CORVANE_SOURCE_DIR "/Examples", "-B", build.path(), "-G", CMAKE_GENERATOR,
         "-DCMAKE_PREFIX_PATH=" + installed.prefix()});
  cmake({"--build", build.path()});
  expectWorkingExamples(build.path());
}

TEST(Package, isNotFoundWhereALibraryIsMissing) {
  const Installed installed("development");
  const TemporaryFolder asking;
  asking.write("CMakeLists.txt",
               "cmake_minimum_required(VERSION 3.25)\n"
               "project(Asking LANGUAGES CXX)\n"
               "find_package(CorvaneControl 1)\n"
               "if(NOT CorvaneControl_FOUND)\n"
               "  message(STATUS \"goes on without\")\n"
               "endif()\n");
  const std::string said = cmake({"-S", asking.path(), "-B", asking.path("build"), "-G",
                                  CMAKE_GENERATOR, "-DCMAKE_PREFIX_PATH=" + installed.prefix()},
                                 {{"PKG_CONFIG_LIBDIR", asking.path()}, {"PKG_CONFIG_PATH", ""}});
  EXPECT_NE(said.find("libutf8proc is missing."), std::string::npos) << said;
  EXPECT_NE(said.find("goes on without"), std::string::npos) << said;
}

TEST(Package, isFoundByPkgConfig) {
  const Installed installed("development");
  const TemporaryFolder build;
  const auto compiles = [&](const std::string& words) {
    succeeds("/bin/sh",
             {.arguments = {"-c", "exec \"$CXX\" $CXXFLAGS -std=c++20 " + words},
              .environment = {{"CXX", CXX_COMPILER},
                              {"CXXFLAGS", CXX_FLAGS},
                              {"PKG_CONFIG_PATH", installed.folderOf("corvane-control.pc")}},
              .folder = build.path()});
  };
  for (const std::string example : {"names", "application"}) {
    compiles("-c '" CORVANE_SOURCE_DIR "/Examples/" + example +
             ".cpp' $(pkg-config --cflags corvane-control)");
  }
  for (const std::string asked : {"--libs", "--static --libs"}) {
    for (const std::string example : {"names", "application"}) {
      compiles("-o " + example + " " + example + ".o $(pkg-config " + asked + " corvane-control)");
    }
    expectWorkingExamples(build.path());
  }
}

TEST(Package, isUninstalledWithoutATrace) {
  const Notes notes;
  const TemporaryFolder prefix;
  install(prefix.path(), "runtime");
  install(prefix.path(), "development");
  ASSERT_FALSE(filesBelow(prefix.path()).empty());
  prefix.write("bin/users-own", "stays");
  cmake({"--build", CORVANE_BUILD_DIR, "--target", "uninstall"});
  EXPECT_EQ(filesBelow(prefix.path()), Names{"bin/users-own"});
  for (const auto& entry : fs::recursive_directory_iterator(prefix.path())) {
    EXPECT_NE(entry.path().filename(), "CorvaneControl");
  }
  const Ended again = CorvaneTests::run(
      CMAKE_COMMAND, {.arguments = {"--build", CORVANE_BUILD_DIR, "--target", "uninstall"}});
  EXPECT_NE(again.status, 0) << "there was nothing left to remove";
}

/// A build folder that is configured with some options, for another one's compiler, and not built.
class Configured {
 public:
  explicit Configured(const std::vector<std::string>& options,
                      const std::string& source = CORVANE_SOURCE_DIR) {
    std::vector<std::string> arguments{"-S",
                                       source,
                                       "-B",
                                       folder_.path(),
                                       "-G",
                                       CMAKE_GENERATOR,
                                       "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    cmake(std::move(arguments));
  }
  std::string commands() const { return folder_.read("compile_commands.json"); }
  /// The command that links corvanectl, and more.
  std::string links() const {
    for (const char* const rules :
         {"build.ninja", "Sources/corvanectl/CMakeFiles/corvanectl.dir/link.txt"}) {
      if (folder_.holds(rules)) return folder_.read(rules);
    }
    ADD_FAILURE() << "no build rules for " CMAKE_GENERATOR;
    return {};
  }

 private:
  const TemporaryFolder folder_{};
};

const std::string withoutGoogleTest = "-DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON";

TEST(Package, isBuiltPlainlyWithoutGoogleTestAndWithWarningsThatAreNoErrors) {
  const std::string commands = Configured({withoutGoogleTest}).commands();
  EXPECT_NE(commands.find("Driver.cpp"), std::string::npos);
  EXPECT_EQ(commands.find("Tests.cpp"), std::string::npos);
  EXPECT_EQ(commands.find("-Werror"), std::string::npos);
}

TEST(Package, takesWarningsForErrorsUnderItsPresets) {
  for (const char* const preset : {"debug", "release"}) {
    const TemporaryFolder build;
    cmake({"--preset", preset, "-S", CORVANE_SOURCE_DIR, "-B", build.path(), withoutGoogleTest});
    EXPECT_NE(build.read("compile_commands.json").find("-Werror"), std::string::npos) << preset;
  }
}

TEST(Package, bringsNeitherTestsNorInstallationIntoAnotherProject) {
  const TemporaryFolder parent;
  parent.write("CMakeLists.txt",
               "cmake_minimum_required(VERSION 3.25)\n"
               "project(Parent LANGUAGES C CXX)\n"
               "add_custom_target(uninstall)\n"
               "add_subdirectory(" CORVANE_SOURCE_DIR
               " corvane)\n"
               "add_executable(parent main.cpp)\n"
               "target_link_libraries(parent PRIVATE Corvane::CorvaneControl)\n");
  parent.write("main.cpp", "#include <CorvaneControl/ControlSocket.h>\nint main() {}\n");
  const Configured configured({withoutGoogleTest}, parent.path());
  EXPECT_EQ(configured.commands().find("Tests.cpp"), std::string::npos);
  EXPECT_EQ(configured.commands().find("-Werror"), std::string::npos);
}

TEST(Package, linksTheArchivesOfOthersOnlyWhenAllIsStatic) {
  EXPECT_NE(Configured({"-DCORVANE_STATIC=ON"}).links().find("libutf8proc.a"), std::string::npos);
  EXPECT_EQ(Configured({"-DCORVANE_STATIC=OFF"}).links().find("libutf8proc.a"), std::string::npos);
}

TEST(Package, looksForNoTestDataOutsideOfTheRepositoryByItself) {
  const TemporaryFolder build;
  const std::string cache = succeeds(
      CMAKE_COMMAND,
      {.arguments = {"-S", CORVANE_SOURCE_DIR, "-B", build.path(), "-G", CMAKE_GENERATOR, "-LA"},
       .environment = {{"CXX", CXX_COMPILER}},
       .withoutEnvironment = {"CORVANE_JSON_TEST_SUITE"}});
  EXPECT_NE(cache.find("CORVANE_JSON_TEST_SUITE:PATH=\n"), std::string::npos) << cache;
}

}  // namespace
