// The Android build files, checked the way Soong would read them:
//  - Android.bp and the host build (CMake) compile the same sources, so the
//    daemon tested here is the one built for the device;
//  - every library a module names is a module of this tree or of AOSP (the
//    list below), and no host variant depends on a device-only library;
//  - every #include of every source a module compiles resolves through that
//    module's include paths (its own, its dependencies' exported ones, or the
//    headers an AOSP dependency provides);
//  - the init script, the SELinux policy and the ueventd lines agree with
//    each other and with what the daemon opens and serves.
// Each check is also run on a damaged copy of Android.bp, to show it catches
// the fault it is for.
#include <gtest/gtest.h>

#include <glob.h>
#include <sys/stat.h>

#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

std::string Source(const std::string& rel) { return ReadFile(std::string(LUMX_SOURCE_DIR) + "/" + rel); }

bool IsFile(const std::string& rel) {
  struct stat st;
  return stat((std::string(LUMX_SOURCE_DIR) + "/" + rel).c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// ---- a Blueprint reader: modules of `type { name: value, ... }` ----

struct Value {
  std::string str;  // a string, or "true"/"false"
  std::vector<Value> list;
  std::map<std::string, Value> map;
};

struct Module {
  std::string type, dir;  // dir: of the Android.bp, relative to the tree
  Value props;
  std::string Name() const { return props.map.count("name") ? props.map.at("name").str : ""; }
  bool Flag(const std::string& prop, bool dflt) const {
    return props.map.count(prop) ? props.map.at(prop).str == "true" : dflt;
  }
};

std::vector<std::string> Strings(const Value& v, const std::string& prop) {
  std::vector<std::string> out;
  if (auto it = v.map.find(prop); it != v.map.end())
    for (const Value& e : it->second.list) out.push_back(e.str);
  return out;
}

// Strings, words and punctuation; comments are dropped.
class BlueprintParser {
 public:
  explicit BlueprintParser(const std::string& text) {
    static const std::regex kToken(R"re("(?:[^"\\]|\\.)*"|[A-Za-z_][A-Za-z0-9_]*|[{}\[\]:,]|//[^\n]*|/\*[^*]*\*/|\S)re");
    for (std::sregex_iterator it(text.begin(), text.end(), kToken), e; it != e; ++it)
      if (it->str().compare(0, 2, "//") != 0 && it->str().compare(0, 2, "/*") != 0) tokens_.push_back(it->str());
  }
  // False on a syntax error.
  bool Modules(const std::string& dir, std::vector<Module>* out) {
    while (at_ < tokens_.size()) {
      Module m{tokens_[at_++], dir, {}};
      if (!Parse(&m.props) || m.props.map.empty()) return false;
      out->push_back(m);
    }
    return true;
  }

 private:
  bool Next(const char* t) { return at_ < tokens_.size() && tokens_[at_] == t && ++at_; }
  bool Parse(Value* v) {
    if (at_ >= tokens_.size()) return false;
    const std::string t = tokens_[at_++];
    if (t[0] == '"') {
      for (size_t i = 1; i + 1 < t.size(); ++i) v->str += t[i] == '\\' ? t[++i] : t[i];
      return true;
    }
    if (t != "[" && t != "{") return (v->str = t) == "true" || t == "false";
    const char* close = t == "[" ? "]" : "}";
    while (!Next(close)) {
      if (t == "[") {
        v->list.emplace_back();
        if (!Parse(&v->list.back())) return false;
      } else {
        if (at_ + 1 >= tokens_.size() || tokens_[at_ + 1] != ":") return false;
        const std::string key = tokens_[at_];
        at_ += 2;
        if (!Parse(&v->map[key])) return false;
      }
      if (!Next(",") && !Next(close)) return false;
      if (tokens_[at_ - 1] == close) return true;
    }
    return true;
  }

  std::vector<std::string> tokens_;
  size_t at_ = 0;
};

// ---- the module graph ----

// AOSP modules this tree may name: whether they have device and host
// variants, and the headers they provide ("dir/" or one file). A host
// variant not known for certain is left out, which errs on the safe side.
struct AospModule {
  bool device, host;
  std::vector<std::string> headers;
};
const std::map<std::string, AospModule> kAosp = {
    {"libbinder_ndk", {true, false, {"android/binder_"}}},
    {"liblog", {true, true, {"android/log.h", "log/"}}},
    {"libpower", {true, false, {"hardware_legacy/power.h"}}},
    {"libevent", {true, true, {"event2/"}}},
    {"libbase", {true, true, {"android-base/"}}},
    {"libgtest", {true, true, {"gtest/"}}},
    {"libgtest_main", {true, true, {}}},
    {"libgmock", {true, true, {"gmock/", "gtest/"}}},
};

bool Supports(const Module& m, bool host) {
  const bool hostOnly = m.type.find("_host") != std::string::npos || !m.Flag("device_supported", true);
  return host ? hostOnly || m.Flag("host_supported", false) : !hostOnly;
}

// The libraries a variant links: the module's lists, its target's
// (target: { host: ..., android: ... }) and a test's gtest.
std::vector<std::string> Deps(const Module& m, bool host) {
  std::vector<std::string> out;
  Value target;
  if (m.props.map.count("target") && m.props.map.at("target").map.count(host ? "host" : "android"))
    target = m.props.map.at("target").map.at(host ? "host" : "android");
  for (const char* prop : {"shared_libs", "static_libs", "whole_static_libs", "header_libs"})
    for (const Value* v : {&m.props, static_cast<const Value*>(&target)})
      for (const auto& d : Strings(*v, prop)) out.push_back(d);
  if (m.type == "cc_test" && m.Flag("gtest", true)) out.insert(out.end(), {"libgtest", "libgtest_main"});
  return out;
}

struct Tree {
  std::map<std::string, Module> modules;  // cc modules with their defaults, generated libraries
  std::vector<std::string> problems;
  bool HasVariant(const std::string& name, bool host) const {
    if (modules.count(name)) return Supports(modules.at(name), host);
    return kAosp.count(name) && (host ? kAosp.at(name).host : kAosp.at(name).device);
  }
};

// How cc_defaults apply: lists are joined, other values taken where unset.
void Merge(Value* into, const Value& from) {
  for (const auto& [key, v] : from.map) {
    Value& mine = into->map[key];
    if (mine.str.empty() && mine.list.empty() && mine.map.empty()) mine = v;
    else mine.list.insert(mine.list.begin(), v.list.begin(), v.list.end());
  }
}

Tree LoadTree(const std::map<std::string, std::string>& bpFiles) {
  Tree tree;
  std::vector<Module> all;
  for (const auto& [dir, text] : bpFiles)
    if (!BlueprintParser(text).Modules(dir, &all)) tree.problems.push_back(dir + "/Android.bp: syntax error");
  std::map<std::string, Value> defaults;
  for (const Module& m : all)
    if (m.type == "cc_defaults") defaults[m.Name()] = m.props;
  for (Module m : all) {
    if (m.type == "aidl_interface") {
      // The NDK backend's library of the newest frozen version.
      Module lib{"cc_library", m.dir, {}};
      lib.props.map["name"].str = m.Name() + "-V" + m.props.map["versions_with_info"].list.back().map["version"].str + "-ndk";
      lib.props.map["host_supported"] = m.props.map["host_supported"];
      tree.modules[lib.Name()] = lib;
    } else if (m.type.rfind("cc_", 0) == 0 && m.type != "cc_defaults") {
      for (const auto& d : Strings(m.props, "defaults")) {
        Value def = defaults[d];
        for (const auto& dd : Strings(def, "defaults")) Merge(&def, defaults[dd]);  // defaults of defaults
        Merge(&m.props, def);
      }
      tree.modules[m.Name()] = m;
    }
  }
  return tree;
}

std::map<std::string, std::string> RealBpFiles() {
  return {{"", Source("Android.bp")}, {"aidl", Source("aidl/Android.bp")}};
}

// ---- the checks; each returns the faults it found ----

std::vector<std::string> CheckDependencies(const Tree& tree) {
  std::vector<std::string> out = tree.problems;
  for (const auto& [name, m] : tree.modules) {
    for (bool host : {false, true}) {
      if (!Supports(m, host)) continue;
      for (const auto& dep : Deps(m, host)) {
        if (!tree.modules.count(dep) && !kAosp.count(dep)) {
          out.push_back(name + ": " + dep + " is no module of this tree or of AOSP");
        } else if (!tree.HasVariant(dep, host)) {
          out.push_back(name + ": its " + (host ? "host" : "device") + " variant depends on " + dep +
                        ", which has none");
        }
      }
    }
  }
  return out;
}

// The files a srcs entry names, relative to the tree. "a/**/b" matches b in
// a and in the folders below it (two levels deep is as far as this tree goes).
std::vector<std::string> Expand(const std::string& dir, const std::string& pattern) {
  const std::string root = std::string(LUMX_SOURCE_DIR) + "/";
  const std::string base = root + (dir.empty() ? "" : dir + "/");
  std::vector<std::string> forms = {pattern};
  if (const size_t deep = pattern.find("**/"); deep != std::string::npos) {
    const std::string head = pattern.substr(0, deep), tail = pattern.substr(deep + 3);
    forms = {head + tail, head + "*/" + tail, head + "*/*/" + tail};
  }
  std::vector<std::string> out;
  for (const auto& f : forms) {
    glob_t g{};
    if (glob((base + f).c_str(), 0, nullptr, &g) == 0)
      for (size_t i = 0; i < g.gl_pathc; ++i) out.push_back(std::string(g.gl_pathv[i]).substr(root.size()));
    globfree(&g);
  }
  return out;
}

// Headers of the C++ library (no extension), of the C library (bionic has
// all of these) and of the compiler.
bool IsSystemHeader(const std::string& inc) {
  static const std::set<std::string> kLibc = {
      "assert.h", "ctype.h",  "dirent.h", "errno.h",  "fcntl.h",  "ftw.h",   "glob.h",   "inttypes.h",
      "limits.h", "math.h",   "poll.h",   "pthread.h", "sched.h", "signal.h", "spawn.h", "stdarg.h",
      "stddef.h", "stdint.h", "stdio.h",  "stdlib.h", "string.h", "syslog.h", "termios.h", "time.h",
      "unistd.h"};
  static const std::set<std::string> kDirs = {"sys", "linux", "asm", "net", "netinet", "arpa", "sanitizer"};
  const size_t slash = inc.find('/');
  if (slash == std::string::npos) return inc.find('.') == std::string::npos || kLibc.count(inc) > 0;
  return kDirs.count(inc.substr(0, slash)) > 0;
}

// Where an include of a module's source may come from: the module's folder,
// its own and exported include folders and its dependencies' exported ones,
// or the headers of an AOSP dependency (the interface library's are
// aidl/<name>/...).
struct IncludePaths {
  std::vector<std::string> roots;
  std::vector<std::string> provided;
  IncludePaths(const Tree& tree, const Module& m) : roots{m.dir} {
    auto add = [&](const Module& of, const char* prop) {
      for (const auto& d : Strings(of.props, prop)) roots.push_back(d == "." ? of.dir : of.dir.empty() ? d : of.dir + "/" + d);
    };
    add(m, "local_include_dirs");
    add(m, "export_include_dirs");
    for (bool host : {false, true})
      for (const auto& d : Supports(m, host) ? Deps(m, host) : std::vector<std::string>{}) {
        if (tree.modules.count(d)) add(tree.modules.at(d), "export_include_dirs");
        if (kAosp.count(d)) provided.insert(provided.end(), kAosp.at(d).headers.begin(), kAosp.at(d).headers.end());
        if (d.size() > 4 && d.compare(d.size() - 4, 4, "-ndk") == 0) provided.push_back("aidl/" + d.substr(0, d.find("-V")) + "/");
      }
  }
  // The file `inc` names from `file`, "" when none does (system and AOSP
  // headers: `*external` tells whether it is one).
  std::string Find(const std::string& file, const std::string& inc, bool quoted, bool* external) const {
    const std::string here = file.substr(0, file.find_last_of('/') + 1);
    if (quoted && IsFile(here + inc)) return here + inc;
    for (const auto& r : roots)
      if (IsFile(r.empty() ? inc : r + "/" + inc)) return r.empty() ? inc : r + "/" + inc;
    *external = IsSystemHeader(inc);
    for (const auto& h : provided) *external = *external || inc.compare(0, h.size(), h) == 0;
    return "";
  }
};

// Follows the includes of every source a module compiles, and of the
// headers they reach in the tree.
std::vector<std::string> CheckIncludes(const Tree& tree) {
  std::vector<std::string> out;
  static const std::regex kInclude("^\\s*#\\s*include\\s*([<\"])([^>\"]+)[>\"]");
  for (const auto& [name, m] : tree.modules) {
    const IncludePaths paths(tree, m);
    std::vector<std::string> todo;
    for (const auto& s : Strings(m.props, "srcs"))
      for (const auto& f : Expand(m.dir, s)) todo.push_back(f);
    std::set<std::string> seen(todo.begin(), todo.end());
    while (!todo.empty()) {
      const std::string file = todo.back();
      todo.pop_back();
      std::istringstream in(Source(file));
      for (std::string line; std::getline(in, line);) {
        std::smatch sm;
        if (line.find("#include") == std::string::npos || !std::regex_search(line, sm, kInclude)) continue;
        bool external = false;
        const std::string found = paths.Find(file, sm[2], sm[1] == "\"", &external);
        if (!found.empty() && seen.insert(found).second) todo.push_back(found);
        if (found.empty() && !external)
          out.push_back(name + ": " + file + " includes " + sm[2].str() + ", which no include path of it reaches");
      }
    }
  }
  return out;
}

// ---- sources: the same as the host build's ----

std::set<std::string> CMakeCppFiles(const std::string& rel, const std::string& dir) {
  std::string text = Source(rel);
  text = std::regex_replace(text, std::regex("#[^\n]*"), "");
  std::set<std::string> out;
  static const std::regex cpp("([A-Za-z0-9_./-]+\\.cpp)");
  for (std::sregex_iterator it(text.begin(), text.end(), cpp), e; it != e; ++it) out.insert(dir + (*it)[1].str());
  return out;
}

std::set<std::string> BpSources(const Tree& tree, const std::string& name) {
  auto it = tree.modules.find(name);
  EXPECT_NE(it, tree.modules.end()) << name << " not in Android.bp";
  if (it == tree.modules.end()) return {};
  auto v = Strings(it->second.props, "srcs");
  return {v.begin(), v.end()};
}

TEST(AndroidBp, DaemonAndToolSourcesMatchTheHostBuild) {
  Tree tree = LoadTree(RealBpFiles());
  ASSERT_TRUE(tree.problems.empty()) << tree.problems[0];
  std::set<std::string> core = CMakeCppFiles("cmake/sources.cmake", "");
  ASSERT_EQ(core.erase("daemon/main.cpp"), 1u);
  EXPECT_EQ(BpSources(tree, "lumxd_core"), core);
  EXPECT_EQ(BpSources(tree, "lumxd"), std::set<std::string>{"daemon/main.cpp"});
  // The tools build without libsndfile on Android: the host build's WAV
  // source is replaced by the stand-in it compiles too.
  for (const std::string tool : {"lumx", "lumx-dspsim"}) {
    std::set<std::string> cmake = CMakeCppFiles("tools/" + tool + "/CMakeLists.txt", "tools/" + tool + "/");
    EXPECT_EQ(cmake.erase("tools/" + tool + "/wav_io.cpp"), 1u) << tool;
    EXPECT_EQ(cmake.count("tools/" + tool + "/wav_io_none.cpp"), 1u) << tool;
    EXPECT_EQ(BpSources(tree, tool), cmake) << tool;
  }
}

TEST(AndroidBp, DependenciesExistWithTheVariantsTheyAreUsedIn) {
  for (const auto& p : CheckDependencies(LoadTree(RealBpFiles()))) ADD_FAILURE() << p;
}

TEST(AndroidBp, EveryIncludeResolvesThroughTheModulesIncludePaths) {
  Tree tree = LoadTree(RealBpFiles());
  ASSERT_GE(tree.modules.size(), 6u);
  for (const auto& p : CheckIncludes(tree)) ADD_FAILURE() << p;
}

// The checks above, on Android.bp with one fault put in.
TEST(AndroidBp, ChecksCatchTheFaultsTheyAreFor) {
  struct Case {
    const char* what;
    std::string from, to;
    std::function<std::vector<std::string>(const Tree&)> check;
    std::string expect;
  };
  const std::vector<Case> cases = {
      {"a library AOSP does not have", "\"tools/lumx/lumx_relay.cpp\",\n    ],\n",
       "\"tools/lumx/lumx_relay.cpp\",\n    ],\n    shared_libs: [\"libsndfile\"],\n", CheckDependencies,
       "lumx: libsndfile is no module of this tree or of AOSP"},
      {"a host variant of the tests", "    name: \"lumxd_tests\",\n",
       "    name: \"lumxd_tests\",\n    host_supported: true,\n", CheckDependencies,
       "lumxd_tests: its host variant depends on libpower, which has none"},
      {"a device module on a host-only one", "static_libs: [\"lumxd_core\"],",
       "static_libs: [\"lumxd_core\", \"lumx-dspsim\"],", CheckDependencies,
       "lumxd: its device variant depends on lumx-dspsim, which has none"},
      {"the log capture header not exported", "        \"tests/support/include\",\n", "", CheckIncludes,
       "includes lumx_host/log_capture.h, which no include path of it reaches"},
      {"the test rigs not exported", "        \"tests\",\n        \"tests/support/include\",\n",
       "        \"tests/support/include\",\n", CheckIncludes,
       "tests/buffer/buffer_rx_test.cpp includes support/buffer_dev_dir.h"},
      {"the WAV library's header in a device build", "\"tools/lumx/wav_io_none.cpp\"", "\"tools/lumx/wav_io.cpp\"",
       CheckIncludes, "lumx: tools/lumx/wav_io.cpp includes sndfile.h"},
  };
  for (const Case& c : cases) {
    auto files = RealBpFiles();
    const size_t at = files[""].find(c.from);
    ASSERT_NE(at, std::string::npos) << c.what;
    files[""].replace(at, c.from.size(), c.to);
    std::string all;
    for (const auto& p : c.check(LoadTree(files))) all += p + "\n";
    EXPECT_NE(all.find(c.expect), std::string::npos) << c.what << "; found:\n" << all;
  }
}

// ---- init script, SELinux policy and ueventd lines ----

// The regular expressions of a file_contexts or service_contexts file, each
// with the type of its label.
std::vector<std::pair<std::string, std::string>> Contexts(const std::string& rel) {
  std::vector<std::pair<std::string, std::string>> out;
  std::istringstream in(Source(rel));
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string pattern, label;
    if (!(words >> pattern >> label) || pattern[0] == '#') continue;
    std::smatch m;
    if (std::regex_match(label, m, std::regex("u:object_r:([a-z_]+):s0"))) out.emplace_back(pattern, m[1]);
  }
  return out;
}

std::string TypeOf(const std::vector<std::pair<std::string, std::string>>& contexts, const std::string& path) {
  std::string type;
  for (const auto& [pattern, t] : contexts)
    if (std::regex_match(path, std::regex(pattern))) type = t;  // the last match wins
  return type;
}

TEST(DevicePolicy, InitScriptPolicyAndNodeOwnersAgree) {
  const std::string rc = Source("lumxd.rc");
  std::smatch m;
  ASSERT_TRUE(std::regex_search(rc, m, std::regex("service lumxd (\\S+)"))) << rc;
  const std::string binary = m[1];
  EXPECT_EQ(binary, "/system_ext/bin/lumxd");
  EXPECT_NE(rc.find("interface aidl lumx.ILumx/default"), std::string::npos);
  // SCHED_FIFO for the I/O threads; the wake lock needs neither the legacy
  // capability nor the sysfs group.
  EXPECT_TRUE(std::regex_search(rc, std::regex("\n\\s*capabilities SYS_NICE\\s*\n")));
  EXPECT_EQ(rc.find("BLOCK_SUSPEND"), std::string::npos);
  EXPECT_EQ(rc.find("wakelock"), std::string::npos);
  EXPECT_NE(Source("Android.bp").find("init_rc: [\"lumxd.rc\"]"), std::string::npos);

  const auto files = Contexts("sepolicy/private/file_contexts");
  const auto services = Contexts("sepolicy/private/service_contexts");
  EXPECT_EQ(TypeOf(files, binary), "lumxd_exec");
  EXPECT_EQ(TypeOf(files, "/system/system_ext/bin/lumxd"), "lumxd_exec");
  for (const char* node : {"/dev/zch-lumx_control", "/dev/zch-lumx_tapout20", "/dev/zch-lumx_inject41", "/dev/lum"})
    EXPECT_EQ(TypeOf(files, node), "lumx_device") << node;
  EXPECT_EQ(TypeOf(files, "/dev/zch-other"), "");
  EXPECT_EQ(TypeOf(services, "lumx.ILumx/default"), "lumx_service");

  // Every type the contexts name is declared, and the domain serves the
  // service, opens the nodes and takes wake locks.
  std::string te;
  for (const char* f : {"lumxd.te", "device.te", "service.te", "lumx_client.te"}) te += Source(std::string("sepolicy/private/") + f);
  for (const char* type : {"lumxd_exec", "lumx_device", "lumx_service"})
    EXPECT_TRUE(std::regex_search(te, std::regex(std::string("\ntype ") + type + ","))) << type;
  for (const char* rule : {"init_daemon_domain(lumxd)", "add_service(lumxd, lumx_service)", "wakelock_use(lumxd)",
                           "allow lumxd lumx_device:chr_file rw_file_perms;", "allow lumxd self:process setsched;"})
    EXPECT_NE(te.find(rule), std::string::npos) << rule;

  // ueventd: the nodes, read-write for the group the daemon runs in.
  ASSERT_TRUE(std::regex_search(rc, m, std::regex("\n\\s*group (\\S+)")));
  const std::string group = m[1];
  const std::string ueventd = Source("sepolicy/ueventd.lumx.rc");
  EXPECT_TRUE(std::regex_search(ueventd, std::regex("\n/dev/zch-lumx_\\*\\s+0660\\s+\\S+\\s+" + group + "\\s*\n")))
      << ueventd;
}

}  // namespace
