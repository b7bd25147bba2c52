// The Android build (Android.bp) and the host build (CMake) must compile the
// same sources: a file added to one and not the other would build a different
// daemon on the device than the one tested here.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  EXPECT_TRUE(in.good()) << path;
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

std::string Source(const std::string& rel) { return ReadFile(std::string(LUMX_SOURCE_DIR) + "/" + rel); }

// Strips // comments so commented-out entries do not count.
std::string StripComments(const std::string& text, const std::string& marker) {
  std::stringstream in(text), out;
  std::string line;
  while (std::getline(in, line)) {
    auto pos = line.find(marker);
    out << (pos == std::string::npos ? line : line.substr(0, pos)) << "\n";
  }
  return out.str();
}

// The quoted entries of the `srcs: [...]` list of the module `type` named
// `name` (the interface and the tool are both called "lumx").
std::set<std::string> BpSources(const std::string& type, const std::string& name) {
  std::string bp = StripComments(Source("Android.bp"), "//");
  std::smatch m;
  std::regex head("\\n" + type + " \\{\\s*name: \"" + name + "\"");
  bool found = std::regex_search(bp, m, head);
  EXPECT_TRUE(found) << type << " " << name << " not in Android.bp";
  if (!found) return {};
  auto at = static_cast<size_t>(m.position(0));
  // The module's body ends at the first line that is a lone closing brace.
  auto end = bp.find("\n}", at);
  std::string body = bp.substr(at, end - at);
  auto srcs = body.find("srcs:");
  EXPECT_NE(srcs, std::string::npos) << "module " << name << " has no srcs";
  if (srcs == std::string::npos) return {};
  std::string list = body.substr(srcs, body.find(']', srcs) - srcs);
  std::set<std::string> out;
  std::regex quoted("\"([^\"]+)\"");
  for (std::sregex_iterator it(list.begin(), list.end(), quoted), e; it != e; ++it) out.insert((*it)[1]);
  return out;
}

// Every *.cpp word of a CMake file, prefixed with `dir`.
std::set<std::string> CMakeCppFiles(const std::string& rel, const std::string& dir) {
  std::string text = StripComments(Source(rel), "#");
  std::set<std::string> out;
  std::regex cpp("([A-Za-z0-9_./-]+\\.cpp)");
  for (std::sregex_iterator it(text.begin(), text.end(), cpp), e; it != e; ++it) out.insert(dir + (*it)[1].str());
  return out;
}

TEST(AndroidBp, DaemonSourcesMatchCMake) {
  std::set<std::string> cmake = CMakeCppFiles("cmake/sources.cmake", "");
  std::set<std::string> main = {"daemon/main.cpp"};
  std::set<std::string> core;
  for (const auto& f : cmake)
    if (!main.count(f)) core.insert(f);
  EXPECT_EQ(BpSources("cc_library_static", "lumxd_core"), core);
  EXPECT_EQ(BpSources("cc_binary", "lumxd"), main);
}

TEST(AndroidBp, ToolSourcesMatchCMake) {
  EXPECT_EQ(BpSources("cc_binary", "lumx"), CMakeCppFiles("tools/lumx/CMakeLists.txt", "tools/lumx/"));
  EXPECT_EQ(BpSources("cc_binary_host", "lumx-dspsim"), CMakeCppFiles("tools/lumx-dspsim/CMakeLists.txt", "tools/lumx-dspsim/"));
}

TEST(AndroidBp, InterfaceAndInitScript) {
  std::string bp = Source("Android.bp");
  EXPECT_NE(bp.find("init_rc: [\"lumxd.rc\"]"), std::string::npos);
  std::string aidl = Source("aidl/Android.bp");
  EXPECT_NE(aidl.find("srcs: [\"lumx/ILumx.aidl\"]"), std::string::npos);
  EXPECT_NE(aidl.find("version: \"2\""), std::string::npos);
  std::string rc = Source("lumxd.rc");
  EXPECT_NE(rc.find("service lumxd /system/bin/lumxd"), std::string::npos);
  // Real-time priority for the I/O threads and the wake lock need these.
  EXPECT_NE(rc.find("SYS_NICE"), std::string::npos);
  EXPECT_NE(rc.find("BLOCK_SUSPEND"), std::string::npos);
  EXPECT_NE(rc.find("wakelock"), std::string::npos);
}

}  // namespace
