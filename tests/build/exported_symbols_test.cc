// The shared library exports exactly its public face, each symbol under the
// version node ZELK_ELF_1.2.0.
#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "gtest/gtest.h"

namespace {

constexpr char kVersionNode[] = "ZELK_ELF_1.2.0";

struct Symbol {
  std::string name;     // without the version suffix
  std::string version;  // "@@NODE", "@NODE" or empty
};

// Defined symbols of the dynamic symbol table, from readelf.
std::vector<Symbol> definedDynamicSymbols(const std::string& library) {
  const std::string command = "readelf --dyn-syms -W '" + library + "'";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"),
                                             pclose);
  EXPECT_NE(pipe, nullptr);
  std::vector<Symbol> symbols;
  if (pipe == nullptr) return symbols;
  char line[4096];
  while (std::fgets(line, sizeof(line), pipe.get()) != nullptr) {
    std::istringstream fields(line);
    std::string num, value, size, type, bind, vis, ndx, name;
    if (!(fields >> num >> value >> size >> type >> bind >> vis >> ndx >> name)) {
      continue;
    }
    if (num.empty() || num.back() != ':' || ndx == "UND" || ndx == "Ndx") {
      continue;
    }
    if (type == "SECTION" || type == "FILE") continue;
    Symbol symbol;
    const size_t at = name.find('@');
    symbol.name = name.substr(0, at);
    if (at != std::string::npos) symbol.version = name.substr(at);
    symbols.push_back(symbol);
  }
  return symbols;
}

// "zelk_elf::ELF::setText(absl::Span<...>, unsigned int)" -> the part
// before the parameter list.
std::string qualifiedName(const std::string& mangled) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> demangled(
      abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status),
      std::free);
  if (status != 0 || demangled == nullptr) return mangled;
  std::string text(demangled.get());
  text = text.substr(0, text.find('('));
  // Drop ABI tags such as "[abi:cxx11]" of functions returning std::string.
  for (size_t tag = text.find("[abi:"); tag != std::string::npos;
       tag = text.find("[abi:")) {
    text.erase(tag, text.find(']', tag) + 1 - tag);
  }
  return text;
}

TEST(ExportedSymbolsTest, ExactlyThePublicFaceUnderOneVersionNode) {
  const std::vector<Symbol> symbols = definedDynamicSymbols(ZELK_ELF_LIBRARY);
  ASSERT_FALSE(symbols.empty());

  std::set<std::string> names;
  for (const Symbol& symbol : symbols) {
    // The version node's own symbol is listed under its name alone.
    if (symbol.name != kVersionNode) {
      EXPECT_EQ(symbol.version, std::string("@@") + kVersionNode)
          << symbol.name;
    }
    names.insert(qualifiedName(symbol.name));
  }

  std::set<std::string> expected = {kVersionNode};
  for (const char* member :
       {"ELF", "~ELF", "operator=", "load", "save", "hasSection", "getSection",
        "getSectionSize", "setSection", "getSectionNames", "setText",
        "getTextAddr", "setCommentInfo", "getMachine", "setMachine", "getType",
        "setType", "getEntry", "setEntry"}) {
    expected.insert(std::string("zelk_elf::ELF::") + member);
  }
  expected.insert("zelk_elf::DebugInfoID::hash");
  expected.insert("zelk_elf::BasicBlockRange::hash");
  for (const char* function :
       {"zelkELFLoad", "zelkELFFree", "zelkELFVersion", "zelkELFGetSection",
        "zelkELFGetSectionSize", "zelkELFSetSection", "zelkELFGetDbgID",
        "zelkELFGetSpillInfo", "zelkELFFreeSpillInfo", "zelkELFGetSWPInfo",
        "zelkELFFreeSWPInfo", "zelkELFGetCFGInfo", "zelkELFFreeCFGInfo",
        "zelkELFGetSrcList", "zelkELFGetSrcNameList", "zelkELFFreeSrcList",
        "zelkELFGetPMSize", "zelkELFGetVerifyInfo", "zelkELFSave",
        "zelkELFFreeBin"}) {
    expected.insert(function);
  }
  EXPECT_EQ(names, expected);
}

TEST(ExportedSymbolsTest, ConstructorsAndOverloadsAllPresent) {
  std::multiset<std::string> names;
  for (const Symbol& symbol : definedDynamicSymbols(ZELK_ELF_LIBRARY)) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> demangled(
        abi::__cxa_demangle(symbol.name.c_str(), nullptr, nullptr, &status),
        std::free);
    if (status == 0) names.insert(demangled.get());
  }
  EXPECT_GE(names.count("zelk_elf::ELF::ELF()"), 1u);
  EXPECT_GE(names.count("zelk_elf::ELF::ELF(zelk_elf::ELF&&)"), 1u);
  EXPECT_EQ(names.count("zelk_elf::ELF::operator=(zelk_elf::ELF&&)"), 1u);
  EXPECT_EQ(names.count("zelk_elf::DebugInfoID::hash() const"), 1u);
  EXPECT_EQ(names.count("zelk_elf::BasicBlockRange::hash() const"), 1u);
}

}  // namespace
