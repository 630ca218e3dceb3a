// The library as it is installed: programs are built from the installed tree alone.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "integration/Daemon.h"
#include "support/Documents.h"
#include "support/Program.h"
#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

const fs::path kClient = fs::path(SORVANE_SOURCE_DIR) / "clients/cpp";

/// Runs a shell command that must succeed, and returns what it prints.
std::string outputOf(const std::string& command) {
  const Outcome outcome = run("/bin/sh", {"-c", command});
  EXPECT_EQ(outcome.status, 0) << command << "\n" << outcome.output << outcome.errors;
  return outcome.output;
}

/// The two components, installed in one place and moved to another one.
class InstalledLibrary : public testing::Test {
 protected:
  void SetUp() override {
    const fs::path first = folder_ / "first";
    for (const char* component : {"libsorvane1", "libsorvane-dev"}) {
      outputOf("cmake --install '" SORVANE_BINARY_DIR "' --prefix '" + first.string() +
               "' --component " + component);
    }
    fs::rename(first, prefix_);
    for (const char* example : {"find.cpp", "register.cpp", "watch.cpp"}) {
      fs::copy_file(kClient / "examples" / example, folder_ / example);
    }
    for (const auto& entry : fs::recursive_directory_iterator(prefix_)) {
      if (entry.path().filename() == "sorvane.pc")
        library_ = entry.path().parent_path().parent_path();
    }
    ASSERT_FALSE(library_.empty());
  }

  /// Whether a program that was built registers a name that others find, until its input ends.
  void expectRegisters(const fs::path& program) {
    Daemon server;
    server.start();
    const std::string port = std::to_string(server.basePort());
    const std::string found =
        outputOf("mkfifo '" + (folder_ / "input").string() + "'; " + "{ LD_LIBRARY_PATH='" +
                 library_.string() + "' '" + program.string() + "' db1 " + port + " < '" +
                 (folder_ / "input").string() + "' & } ; exec 9> '" + (folder_ / "input").string() +
                 "'; '" + builtProgram("sorvctl").string() + "' --port " + port +
                 " wait db1 --state running --timeout 20 && echo found; exec 9>&-; wait");
    EXPECT_NE(found.find("found\n"), std::string::npos) << found;
    EXPECT_NE(found.find(std::to_string(server.basePort() + 1) + "\n"), std::string::npos) << found;
  }

  /// What a program that was built prints while a database is registered as "db1", 0.3 s long.
  std::string printedBeside(const Daemon& server, const fs::path& program,
                            const std::string& words) {
    return outputOf("sleep 0.3 | LD_LIBRARY_PATH='" + library_.string() + "' '" + program.string() +
                    "' " + words + std::to_string(server.basePort()));
  }

  TemporaryFolder folder_;
  fs::path prefix_ = folder_ / "moved here";
  fs::path library_;
};

TEST_F(InstalledLibrary, ServesAProgramThatIsBuiltByCMake) {
  writeFile(folder_ / "CMakeLists.txt",
            "cmake_minimum_required(VERSION 3.25)\n"
            "project(example LANGUAGES CXX)\n"
            "find_package(sorvane 1 REQUIRED)\n"
            "add_executable(shared register.cpp)\n"
            "target_link_libraries(shared PRIVATE sorvane::sorvane)\n"
            "add_executable(find find.cpp)\n"
            "target_link_libraries(find PRIVATE sorvane::sorvane)\n"
            "add_executable(static watch.cpp)\n"
            "target_link_libraries(static PRIVATE sorvane::sorvane-static)\n");
  const std::string folder = folder_.path().string();
  outputOf("cmake -S '" + folder + "' -B '" + folder + "/build' -DCMAKE_PREFIX_PATH='" +
           prefix_.string() + "' -DCMAKE_CXX_COMPILER='" SORVANE_CXX "' && cmake --build '" +
           folder + "/build' --parallel 2");
  expectRegisters(folder_ / "build/shared");
  // The other one needs no shared library, and ends with its input.
  EXPECT_EQ(outputOf("'" + folder + "/build/static' 1 < /dev/null"), "");

  Daemon server;
  server.start();
  Program database(builtProgram("sorvctl"), {"--port", std::to_string(server.basePort()),
                                             "register", "db1", "--host", "192.0.2.7"});
  ASSERT_TRUE(database.prints("\n"));
  const std::string number = std::to_string(server.basePort() + 1);
  EXPECT_EQ(printedBeside(server, folder_ / "build/find", "db1 "), "192.0.2.7 " + number + "\n");
  EXPECT_EQ(printedBeside(server, folder_ / "build/static", ""),
            "registered db1 " + number + " \n");
}

TEST_F(InstalledLibrary, ServesAProgramThatIsBuiltByPkgConfig) {
  const std::string config =
      "PKG_CONFIG_PATH='" + (library_ / "pkgconfig").string() + "' pkg-config ";
  EXPECT_EQ(outputOf(config + "--modversion sorvane"), SORVANE_VERSION "\n");
  outputOf("eval \"'" SORVANE_CXX "' -std=c++20 '" + (folder_ / "register.cpp").string() +
           "' -o '" + (folder_ / "program").string() + "' $(" + config +
           "--cflags --libs sorvane)\"");
  expectRegisters(folder_ / "program");
}

TEST_F(InstalledLibrary, ExportsThePublicClassesAndNothingElse) {
  const std::string file = (library_ / "libsorvane.so.1").string();
  std::istringstream symbols(
      outputOf("nm --dynamic --defined-only --demangle --format=just-symbols '" + file + "'"));
  std::set<std::string> classes;
  for (std::string symbol; std::getline(symbols, symbol);) {
    if (symbol.starts_with("SORVANE_1")) continue;  // the version itself
    const std::string name = symbol.substr(0, symbol.find('('));
    const std::size_t method = name.rfind("::");
    EXPECT_EQ(symbol.substr(symbol.find("@@")), "@@SORVANE_1") << symbol;
    classes.insert(name.substr(0, method));
  }
  EXPECT_EQ(classes,
            (std::set<std::string>{"sorvane::client::Client", "sorvane::client::Registration",
                                   "sorvane::client::Watch"}));
}

TEST_F(InstalledLibrary, NeedsOnlyTheLanguagesLibraries) {
  std::istringstream dynamic(
      outputOf("readelf --wide --dynamic '" + (library_ / "libsorvane.so.1").string() + "'"));
  std::set<std::string> needed;
  std::string name;
  for (std::string line; std::getline(dynamic, line);) {
    const std::size_t begin = line.find('[');
    const std::string value =
        begin == std::string::npos ? "" : line.substr(begin + 1, line.find(']') - begin - 1);
    if (line.find("(NEEDED)") != std::string::npos) needed.insert(value);
    if (line.find("(SONAME)") != std::string::npos) name = value;
  }
  EXPECT_EQ(name, "libsorvane.so.1");
  for (const char* standard :
       {"libc.so.6", "libm.so.6", "libgcc_s.so.1", "libstdc++.so.6", "ld-linux-x86-64.so.2"}) {
    needed.erase(standard);
  }
  EXPECT_EQ(needed, std::set<std::string>());
}

// A thread of it may still wait for the system when a program gives the library up.
TEST_F(InstalledLibrary, IsHardenedAndStaysInTheProcess) {
  const std::string file = (library_ / "libsorvane.so.1").string();
  const std::string flags = outputOf("readelf --wide --dynamic '" + file + "' | grep FLAGS_1");
  EXPECT_NE(flags.find(" NOW"), std::string::npos) << flags;
  EXPECT_NE(flags.find(" NODELETE"), std::string::npos) << flags;
  outputOf("readelf --wide --segments '" + file + "' | grep GNU_RELRO");
}

TEST_F(InstalledLibrary, HasOneHeader) {
  std::set<std::string> headers;
  for (const auto& entry : fs::recursive_directory_iterator(prefix_ / "include")) {
    if (entry.is_regular_file()) headers.insert(entry.path().lexically_relative(prefix_).string());
  }
  EXPECT_EQ(headers, std::set<std::string>{"include/sorvane/client.h"});
}

TEST(DocumentsFromCpp, ShowTheExamplesThatAreTested) {
  const fs::path project(SORVANE_SOURCE_DIR);
  const std::string example = readFile(kClient / "examples/register.cpp");
  EXPECT_EQ(fencedBlocks(chapter(documentLines(project / "README.md"), "## From C++"), "cpp"),
            std::vector<std::string>{example});
  EXPECT_LE(std::count(example.begin(), example.end(), '\n'), 25);
  EXPECT_EQ(fencedBlocks(documentLines(project / "docs/clients.md"), "cpp"),
            (std::vector<std::string>{example, readFile(kClient / "examples/find.cpp"),
                                      readFile(kClient / "examples/watch.cpp")}));
}

}  // namespace
}  // namespace sorvane::test
