// Every name the public header declares is exported by the built
// libraries: the header as the compiler sees it (preprocessed, so that the
// declarations the type tables expand to are there one by one) against the
// dynamic symbol tables of libSorn.so.1 and libKu.so.2, read from the files.
// A kernel left out of a build, a wrapper that lost its extern "C", a name
// the version script hides: each fails here. The count per subsystem is
// printed, by the banners that divide the header.
#include <elf.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string read_file(const char *path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in.good()) << "cannot read " << path;
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// ---------------------------------------------------------------- the libraries

// The names a shared object defines and exports: defined, global or weak,
// of default or protected visibility, from its dynamic symbol table.
std::set<std::string> exported_names(const char *path) {
  const std::string f = read_file(path);
  std::set<std::string> out;
  if (f.size() < sizeof(Elf64_Ehdr)) {
    ADD_FAILURE() << path << " is no ELF file";
    return out;
  }
  const auto *eh = reinterpret_cast<const Elf64_Ehdr *>(f.data());
  if (std::memcmp(eh->e_ident, ELFMAG, SELFMAG) != 0 || eh->e_ident[EI_CLASS] != ELFCLASS64) {
    ADD_FAILURE() << path << " is no 64-bit ELF file";
    return out;
  }
  const auto *sh = reinterpret_cast<const Elf64_Shdr *>(f.data() + eh->e_shoff);
  for (int i = 0; i < eh->e_shnum; ++i) {
    if (sh[i].sh_type != SHT_DYNSYM) continue;
    const char *strtab = f.data() + sh[sh[i].sh_link].sh_offset;
    const auto *sym = reinterpret_cast<const Elf64_Sym *>(f.data() + sh[i].sh_offset);
    const size_t n = sh[i].sh_size / sizeof(Elf64_Sym);
    for (size_t k = 1; k < n; ++k) {
      const int bind = ELF64_ST_BIND(sym[k].st_info), vis = ELF64_ST_VISIBILITY(sym[k].st_other);
      // Undefined names are imports; absolute ones name the version nodes.
      if (sym[k].st_shndx == SHN_UNDEF || sym[k].st_shndx == SHN_ABS) continue;
      if (bind != STB_GLOBAL && bind != STB_WEAK) continue;
      if (vis != STV_DEFAULT && vis != STV_PROTECTED) continue;
      out.insert(strtab + sym[k].st_name);
    }
  }
  return out;
}

// ---------------------------------------------------------------- the header

// Where each subsystem's part of the header begins: the banners
//   /* ====...
//    * Title: more
//    * ====... */
// and, inside the core, the one line that opens the base library's part.
struct Section {
  int line;
  std::string name;
};

const char kBaseLibrary[] = "Base library (libKu.so.2)";

std::vector<Section> sections_of(const std::string &header) {
  std::vector<Section> out;
  std::istringstream in(header);
  std::string line, prev;
  int no = 0;
  bool banner = false;
  std::string last;  // the last section opened, to close the base library's part
  while (std::getline(in, line)) {
    ++no;
    if (banner) {
      banner = false;
      const size_t star = line.find('*');
      if (star != std::string::npos) {
        std::string title = line.substr(star + 1);
        title.erase(0, title.find_first_not_of(' '));
        const size_t colon = title.find(':');
        if (colon != std::string::npos) title.resize(colon);
        out.push_back({no, title});
        last = title;
      }
    } else if (line.rfind("/* ======", 0) == 0) {
      banner = true;
    } else if (line.rfind("/* ----", 0) == 0) {
      // A sub-banner: the base library's part, or the end of it.
      if (line.find("libKu") != std::string::npos)
        out.push_back({no, kBaseLibrary});
      else if (!out.empty() && out.back().name == kBaseLibrary)
        out.push_back({no, last});
    }
  }
  return out;
}

struct Declared {
  std::string name;
  int line;  // in the header
};

bool ident_char(char c) { return std::isalnum((unsigned char)c) || c == '_' || c == '$'; }

// The functions and objects the header declares, from its preprocessed
// text: statements at file scope that are not type definitions, named by
// the identifier before their parameter list (functions) or before the
// closing semicolon (extern objects). A name bound to another symbol with
// an assembler label is taken by its label.
std::vector<Declared> declarations_of(const std::string &pre, const std::string &header_name) {
  // Only the header's own lines, each token with its line in the header.
  struct Tok {
    std::string s;
    int line;
  };
  std::vector<Tok> toks;
  std::istringstream in(pre);
  std::string line;
  bool ours = false;
  int no = 0;
  while (std::getline(in, line)) {
    if (line.size() > 2 && line[0] == '#' && line[1] == ' ') {
      // A line marker: # <line> "<file>" flags
      const size_t q1 = line.find('"'), q2 = line.rfind('"');
      const std::string file = q1 != std::string::npos && q2 > q1 ? line.substr(q1 + 1, q2 - q1 - 1) : "";
      ours = file.size() >= header_name.size() &&
             file.compare(file.size() - header_name.size(), header_name.size(), header_name) == 0;
      no = std::atoi(line.c_str() + 2) - 1;
      continue;
    }
    ++no;
    if (!ours) continue;
    for (size_t i = 0; i < line.size();) {
      const char c = line[i];
      if (std::isspace((unsigned char)c)) {
        ++i;
      } else if (ident_char(c)) {
        size_t j = i;
        while (j < line.size() && ident_char(line[j])) ++j;
        toks.push_back({line.substr(i, j - i), no});
        i = j;
      } else if (c == '"') {
        size_t j = i + 1;
        while (j < line.size() && line[j] != '"') j += line[j] == '\\' ? 2 : 1;
        toks.push_back({line.substr(i, j + 1 - i), no});
        i = j + 1;
      } else {
        toks.push_back({std::string(1, c), no});
        ++i;
      }
    }
  }

  std::vector<Declared> out;
  std::vector<Tok> stmt;
  int depth = 0;
  auto finish = [&](bool has_body) {
    if (stmt.empty()) return;
    const std::string &first = stmt[0].s;
    if (first == "typedef" || first == "static" || has_body) {
      stmt.clear();
      return;
    }
    std::string name, label;
    int at = stmt[0].line;
    for (size_t i = 0; i + 1 < stmt.size(); ++i) {
      if ((stmt[i].s == "__asm__" || stmt[i].s == "asm") && i + 2 < stmt.size() &&
          stmt[i + 2].s.front() == '"')
        label = stmt[i + 2].s.substr(1, stmt[i + 2].s.size() - 2);
    }
    for (size_t i = 0; i + 1 < stmt.size() && name.empty(); ++i)
      if (ident_char(stmt[i].s[0]) && stmt[i + 1].s == "(" && stmt[i].s != "__attribute__" &&
          stmt[i].s != "__asm__" && stmt[i].s != "asm")
        name = stmt[i].s, at = stmt[i].line;
    if (name.empty() && first == "extern") {
      // An object: the last identifier before an array bound or the end.
      for (size_t i = 0; i < stmt.size() && stmt[i].s != "["; ++i)
        if (ident_char(stmt[i].s[0])) name = stmt[i].s, at = stmt[i].line;
    }
    if (!name.empty() && !std::isdigit((unsigned char)name[0]))
      out.push_back({label.empty() ? name : label, at});
    stmt.clear();
  };
  bool body = false, function_body = false;
  for (const Tok &t : toks) {
    if (t.s == "{") {
      // A body opened right after a parameter list is a function defined
      // in the header: it ends with its closing brace and exports nothing.
      if (depth == 0) function_body = !stmt.empty() && stmt.back().s == ")";
      ++depth;
      body = true;
      stmt.push_back(t);
    } else if (t.s == "}") {
      --depth;
      stmt.push_back(t);
      if (depth == 0 && function_body) {
        finish(true);
        body = function_body = false;
      }
    } else if (t.s == ";" && depth == 0) {
      finish(body);
      body = false;
    } else {
      stmt.push_back(t);
    }
  }
  return out;
}

std::string section_at(const std::vector<Section> &sections, int line) {
  std::string name = "(before the first banner)";
  for (const Section &s : sections)
    if (s.line <= line) name = s.name;
  return name;
}

struct Inventory {
  std::vector<Declared> declared;
  std::vector<Section> sections;
  std::set<std::string> sorn, ku;
};

const Inventory &inventory() {
  static const Inventory inv = [] {
    Inventory v;
    const std::string header = read_file(SORN_HEADER_PATH);
    v.sections = sections_of(header);
    v.declared = declarations_of(read_file(SORN_HEADER_PREPROCESSED_PATH), "sorn.h");
    v.sorn = exported_names(SORN_LIBRARY_PATH);
    v.ku = exported_names(KU_LIBRARY_PATH);
    return v;
  }();
  return inv;
}

TEST(ExportedNames, TheHeaderIsReadWhole) {
  const Inventory &inv = inventory();
  std::set<std::string> names;
  for (const Declared &d : inv.declared) names.insert(d.name);
  // Names written out, names the type tables expand to, objects, and names
  // with the suffixes after '$'.
  for (const char *n : {"SornAdd", "SornXEinit", "sorna__add_c1_u8u8u8", "sorna__addq_c1_s8u8u8",
                        "sorna__rsubqC_c1_f32u8s32", "_S_wtstb_lazy_opv", "_G_sorn_use_simd",
                        "KuSMEMSTGopen", "__sorn_fmserfilt__$", "SornGenerateFMSERs"})
    EXPECT_TRUE(names.count(n)) << n << " not found among the declarations";
  EXPECT_EQ(names.size(), inv.declared.size()) << "a name declared twice";
  EXPECT_GT(inv.declared.size(), 800u);
  EXPECT_GE(inv.sections.size(), 8u) << "the banners that name the subsystems";
}

TEST(ExportedNames, EveryDeclaredNameIsExportedByItsLibrary) {
  const Inventory &inv = inventory();
  std::map<std::string, std::pair<int, int>> per;  // section: declared, exported
  std::vector<std::string> order;
  for (const Declared &d : inv.declared) {
    const std::string sec = section_at(inv.sections, d.line);
    if (!per.count(sec)) order.push_back(sec);
    auto &count = per[sec];
    ++count.first;
    // The base library's names live in libKu, all others in libSorn.
    const bool base = sec == kBaseLibrary;
    const bool ok = base ? inv.ku.count(d.name) != 0 : inv.sorn.count(d.name) != 0;
    if (ok)
      ++count.second;
    else
      ADD_FAILURE() << d.name << " (header line " << d.line << ", " << sec << ") is not exported by "
                    << (base ? "libKu.so.2" : "libSorn.so.1");
  }
  std::printf("names the header declares, exported, by subsystem:\n");
  int total = 0, total_ok = 0;
  for (const std::string &sec : order) {
    std::printf("  %-45s %5d of %5d\n", sec.c_str(), per[sec].second, per[sec].first);
    total += per[sec].first;
    total_ok += per[sec].second;
  }
  std::printf("  %-45s %5d of %5d\n", "all", total_ok, total);
}

TEST(ExportedNames, EachLibraryExportsOnlyWhatTheHeaderDeclares) {
  // The version scripts export by prefix; a helper that takes one of the
  // prefixes without a declaration in the header would be exported unseen.
  const Inventory &inv = inventory();
  std::set<std::string> names;
  for (const Declared &d : inv.declared) names.insert(d.name);
  for (const std::set<std::string> *lib : {&inv.sorn, &inv.ku})
    for (const std::string &n : *lib)
      EXPECT_TRUE(names.count(n)) << n << " is exported by "
                                  << (lib == &inv.sorn ? "libSorn.so.1" : "libKu.so.2")
                                  << " but not declared in the header";
}

}  // namespace
