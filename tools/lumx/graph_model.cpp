#include "graph_model.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <tuple>

namespace lumx::cli {

namespace {

struct Processor {
  std::string id, type, in, out;
  bool enabled = false;
};

struct Buffer {
  std::string name;
  bool tapOut = true;
  bool listed = false;
  bool enabled = false;
  std::vector<std::string> procs;  // tap-out: its outputs; inject: its input
};

struct Tap {
  int core = 0;
  std::string code;
  unsigned index = 0;
  std::string format, blockLength, out, in;
  bool enabled = false;
  std::string key() const { return std::to_string(core) + ":" + code + "." + std::to_string(index); }
};

std::string RightTrim(std::string s) {
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

std::vector<std::string> Split(const std::string& s, char sep) {
  std::vector<std::string> out;
  size_t from = 0;
  for (;;) {
    size_t at = s.find(sep, from);
    out.push_back(s.substr(from, at == std::string::npos ? std::string::npos : at - from));
    if (at == std::string::npos) return out;
    from = at + 1;
  }
}

std::vector<std::string> Words(const std::string& s) {
  std::vector<std::string> out;
  for (const std::string& w : Split(s, ' ')) {
    if (!w.empty()) out.push_back(w);
  }
  return out;
}

// Rows of a listing: the lines after its title and column header; "  none"
// has none.
std::vector<std::string> Rows(const std::vector<std::string>& lines) {
  std::vector<std::string> rows;
  for (size_t k = 1; k < lines.size(); ++k) {
    if (lines[k].rfind("  Id ", 0) == 0 || lines[k] == "  none") continue;
    rows.push_back(lines[k]);
  }
  return rows;
}

// "  %-9s %-9s %-9s %-9s %-9u": id and type in fixed columns (a code may hold
// a blank), then input, output and the enabled flag.
bool ParseProcessorRow(const std::string& row, Processor* p) {
  if (row.size() < 23 || row.compare(0, 2, "  ") != 0) return false;
  std::vector<std::string> rest = Words(row.substr(22));
  if (rest.size() != 3 || (rest[2] != "0" && rest[2] != "1")) return false;
  p->id = RightTrim(row.substr(2, 9));
  p->type = RightTrim(row.substr(12, 9));
  p->in = rest[0];
  p->out = rest[1];
  p->enabled = rest[2] == "1";
  return true;
}

// "  %-9d %-9s %-9s %-9s %-9u": id, name, input, outputs, enabled.
bool ParseBufferRow(const std::string& row, bool tapOut, Buffer* b) {
  std::vector<std::string> w = Words(row);
  if (w.size() != 5 || (w[4] != "0" && w[4] != "1")) return false;
  b->name = w[1];
  b->tapOut = tapOut;
  b->listed = true;
  b->enabled = w[4] == "1";
  for (const std::string& p : Split(tapOut ? w[3] : w[2], ',')) {
    if (p != "-" && !p.empty()) b->procs.push_back(p);
  }
  return true;
}

// "  %4s.%-2u   %-19s %-9u %-9s %-9s %-9u": the format text is 19 characters
// wide and may hold blanks; the rest are words.
bool ParseTapRow(int core, const std::string& row, Tap* t) {
  if (row.size() < 8 || row.compare(0, 2, "  ") != 0 || row[6] != '.') return false;
  t->core = core;
  t->code = row.substr(2, 4);
  t->code.erase(0, t->code.find_first_not_of(' '));
  size_t k = 7;
  unsigned index = 0;
  for (; k < row.size() && row[k] >= '0' && row[k] <= '9' && index < 100000; ++k) index = index * 10 + (row[k] - '0');
  if (k == 7) return false;
  t->index = index;
  while (k < row.size() && row[k] == ' ') ++k;
  if (k + 19 > row.size()) return false;
  t->format = RightTrim(row.substr(k, 19));
  std::vector<std::string> w = Words(row.substr(k + 19));
  if (w.size() != 4) return false;
  t->blockLength = w[0];
  t->out = w[1];
  t->in = w[2];
  t->enabled = w[3] == "1";
  return true;
}

// A DOT string: quotes and backslashes escaped; bytes that are not
// printable ASCII written as \xNN so that dot reads any name.
std::string Quoted(const std::string& s) {
  std::string out = "\"";
  for (char c : s) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += c;
    } else if (u < 0x20 || u > 0x7e) {
      char buf[8];
      snprintf(buf, sizeof(buf), "\\\\x%02x", u);
      out += buf;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

// A label of several lines, each escaped on its own.
std::string Label(const std::vector<std::string>& lines) {
  std::string out;
  for (const std::string& l : lines) {
    std::string q = Quoted(l);
    out += (out.empty() ? "" : "\\n") + q.substr(1, q.size() - 2);
  }
  return "\"" + out + "\"";
}

std::string TapNode(const std::string& key) { return Quoted("tap " + key); }
std::string BufferNode(const std::string& name) { return Quoted("buffer " + name); }
std::string ProcessorNode(const std::string& id) { return Quoted("processor " + id); }

}  // namespace

std::string GraphDot(const GraphListings& in, std::vector<std::string>* problems) {
  std::vector<Processor> processors;
  for (const std::string& row : Rows(in.processors)) {
    Processor p;
    if (ParseProcessorRow(row, &p)) {
      processors.push_back(p);
    } else {
      problems->push_back("unreadable processor row '" + row + "'");
    }
  }
  std::vector<Buffer> buffers;  // tap-out buffers first, each in listing order
  for (bool tapOut : {true, false}) {
    for (const std::string& row : Rows(tapOut ? in.tapOut : in.inject)) {
      Buffer b;
      if (ParseBufferRow(row, tapOut, &b)) {
        buffers.push_back(b);
      } else {
        problems->push_back(std::string("unreadable ") + (tapOut ? "tap-out" : "inject") + " buffer row '" + row + "'");
      }
    }
  }
  std::vector<Tap> taps;
  for (const auto& [core, lines] : in.taps) {
    if (lines.size() < 2 || lines[1] == "  No tap points") {
      problems->push_back("no tap list from DSP core " + std::to_string(core));
      continue;
    }
    std::vector<std::string> rows = Split(lines[1], '\n');
    for (size_t k = 1; k < rows.size(); ++k) {
      Tap t;
      if (!ParseTapRow(core, rows[k], &t)) {
        problems->push_back("unreadable tap row '" + rows[k] + "'");
      } else if (t.out != "-" || t.in != "-") {
        taps.push_back(t);
      }
    }
  }
  std::sort(taps.begin(), taps.end(), [](const Tap& a, const Tap& b) {
    return std::tie(a.core, a.code, a.index) < std::tie(b.core, b.code, b.index);
  });

  // Buffers worth drawing: enabled, wired or bound. Names the listings do
  // not have (a processor's buffer gone meanwhile) are drawn as well.
  std::set<std::string> used;
  for (const Processor& p : processors) {
    used.insert(p.in);
    used.insert(p.out);
  }
  for (const Tap& t : taps) {
    used.insert(t.out);
    used.insert(t.in);
  }
  used.erase("-");
  std::vector<const Buffer*> shown;
  for (const Buffer& b : buffers) {
    if (b.enabled || !b.procs.empty() || used.count(b.name)) shown.push_back(&b);
    used.erase(b.name);
  }
  std::vector<Buffer> unlisted;
  for (const std::string& name : used) {
    Buffer b;
    b.name = name;
    b.tapOut = name.rfind("inject", 0) != 0;
    unlisted.push_back(b);
  }
  for (const Buffer& b : unlisted) shown.push_back(&b);

  std::string out = "digraph lumx {\n  rankdir=LR;\n";
  if (!problems->empty()) {
    std::string title;
    for (const std::string& p : *problems) title += (title.empty() ? "" : "; ") + p;
    out += "  labelloc=t;\n  label=" + Quoted(title) + ";\n";
  }
  out += "  node [fontname=\"Helvetica\", fontsize=10];\n";
  int lastCore = -1;
  for (const Tap& t : taps) {
    if (t.core != lastCore) {
      if (lastCore >= 0) out += "  }\n";
      lastCore = t.core;
      out += "  subgraph \"cluster_core" + std::to_string(t.core) + "\" {\n    label=\"DSP core " +
             std::to_string(t.core) + "\";\n";
    }
    std::vector<std::string> label = {t.code + "." + std::to_string(t.index), t.format,
                                      "block " + t.blockLength};
    if (!t.enabled) label.push_back("(disabled)");
    out += "    " + TapNode(t.key()) + " [shape=ellipse" + (t.enabled ? "" : ", style=dashed") +
           ", label=" + Label(label) + "];\n";
  }
  if (lastCore >= 0) out += "  }\n";
  if (!shown.empty() || !processors.empty()) {
    out += "  subgraph \"cluster_lumxd\" {\n    label=\"lumxd\";\n";
    auto buffer = [&](const Buffer* b) {
      std::vector<std::string> label = {b->name};
      if (!b->listed) label.push_back("(not listed)");
      const bool dashed = b->listed && !b->enabled;
      if (dashed) label.push_back("(disabled)");
      out += "    " + BufferNode(b->name) + " [shape=box" + (dashed ? ", style=dashed" : "") +
             ", label=" + Label(label) + "];\n";
    };
    for (const Buffer* b : shown) {
      if (b->tapOut) buffer(b);
    }
    for (const Processor& p : processors) {
      std::vector<std::string> label = {p.id, p.type};
      if (!p.enabled) label.push_back("(disabled)");
      out += "    " + ProcessorNode(p.id) + " [shape=box, style=" +
             (p.enabled ? "rounded" : "\"rounded,dashed\"") + ", label=" + Label(label) + "];\n";
    }
    for (const Buffer* b : shown) {
      if (!b->tapOut) buffer(b);
    }
    out += "  }\n";
  } else if (taps.empty()) {
    out += "  \"none\" [shape=plaintext, label=\"no processors, no buffers in use, no bound taps\"];\n";
  }

  std::vector<std::string> edges;
  for (const Tap& t : taps) {
    if (t.out != "-") edges.push_back(TapNode(t.key()) + " -> " + BufferNode(t.out) + ";");
    // The way back into the DSP does not push the tap to the right.
    if (t.in != "-") edges.push_back(BufferNode(t.in) + " -> " + TapNode(t.key()) + " [constraint=false];");
  }
  for (const Processor& p : processors) {
    if (p.in != "-") edges.push_back(BufferNode(p.in) + " -> " + ProcessorNode(p.id) + ";");
    if (p.out != "-") edges.push_back(ProcessorNode(p.id) + " -> " + BufferNode(p.out) + ";");
  }
  // A buffer keeps a processor registered after the processor was rewired
  // away from it (Connect with -1): audio still goes that way, so it is
  // drawn, dotted.
  for (const Buffer& b : buffers) {
    for (const std::string& id : b.procs) {
      bool wired = false;
      for (const Processor& p : processors) {
        wired = wired || (p.id == id && (b.tapOut ? p.in : p.out) == b.name);
      }
      if (wired) continue;
      const std::string from = b.tapOut ? BufferNode(b.name) : ProcessorNode(id);
      const std::string to = b.tapOut ? ProcessorNode(id) : BufferNode(b.name);
      edges.push_back(from + " -> " + to + " [style=dotted, label=\"registered\"];");
    }
  }
  std::sort(edges.begin(), edges.end());
  edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
  for (const std::string& e : edges) out += "  " + e + "\n";
  out += "}\n";
  return out;
}

}  // namespace lumx::cli
