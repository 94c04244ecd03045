// The shared library exports exactly its public face, each symbol under the
// version node ZELK_ELF_1.2.0.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include "gtest/gtest.h"

namespace {

TEST(ExportedSymbolsTest, ExactlyThePublicFaceUnderOneVersionNode) {
  const std::string command =
      std::string("nm -D --defined-only -C --with-symbol-versions '") + ZELK_ELF_LIBRARY + "'";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  ASSERT_NE(pipe, nullptr);
  std::set<std::string> names, whole;  // names before their parameters, and whole
  char line[4096];
  while (std::fgets(line, sizeof(line), pipe.get()) != nullptr) {
    std::string symbol(line);
    symbol = symbol.substr(symbol.find(' ', symbol.find(' ') + 1) + 1);  // after address and type
    symbol.pop_back();
    if (symbol == "ZELK_ELF_1.2.0") continue;  // the node itself
    const size_t at = symbol.rfind("@@ZELK_ELF_1.2.0");
    EXPECT_EQ(at + 16, symbol.size()) << symbol;
    symbol.erase(std::min(at, symbol.size()));
    whole.insert(symbol);
    std::string name = symbol.substr(0, symbol.find('('));
    if (name.find("[abi:") != std::string::npos) name.erase(name.find("[abi:"));
    names.insert(name);
  }
  std::set<std::string> expected = {"zelk_elf::DebugInfoID::hash",
                                    "zelk_elf::BasicBlockRange::hash"};
  for (const char* member :
       {"ELF", "~ELF", "operator=", "load", "save", "hasSection", "getSection", "getSectionSize",
        "setSection", "getSectionNames", "setText", "getTextAddr", "setCommentInfo", "getMachine",
        "setMachine", "getType", "setType", "getEntry", "setEntry"}) {
    expected.insert(std::string("zelk_elf::ELF::") + member);
  }
  for (const char* function :
       {"zelkELFLoad",        "zelkELFFree",           "zelkELFVersion",
        "zelkELFGetSection",  "zelkELFGetSectionSize", "zelkELFSetSection",
        "zelkELFGetDbgID",    "zelkELFGetSpillInfo",   "zelkELFFreeSpillInfo",
        "zelkELFGetSWPInfo",  "zelkELFFreeSWPInfo",    "zelkELFGetCFGInfo",
        "zelkELFFreeCFGInfo", "zelkELFGetSrcList",     "zelkELFGetSrcNameList",
        "zelkELFFreeSrcList", "zelkELFGetPMSize",      "zelkELFGetVerifyInfo",
        "zelkELFSave",        "zelkELFFreeBin"}) {
    expected.insert(function);
  }
  EXPECT_EQ(names, expected);
  for (const char* overload : {"zelk_elf::ELF::ELF()", "zelk_elf::ELF::ELF(zelk_elf::ELF&&)",
                               "zelk_elf::ELF::operator=(zelk_elf::ELF&&)"}) {
    EXPECT_EQ(whole.count(overload), 1u) << overload;
  }
}

}  // namespace
