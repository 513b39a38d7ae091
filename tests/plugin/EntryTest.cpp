// The plug-in as a module.
#include "PluginAvi.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "base/IClass.h"
#include "support/Recording.h"

namespace kestro::test {
namespace {

using base::IClass;

TEST(Entry, ExportsOnlyItsEntryPoints) {
  FILE* nm = popen("nm -D --defined-only " TEST_PLUGIN " | awk '{print $3}' | LC_ALL=C sort", "r");
  ASSERT_NE(nullptr, nm);
  std::vector<std::string> symbols;
  char line[256];
  while (std::fgets(line, sizeof line, nm) != nullptr)
    symbols.push_back(std::string(line, strcspn(line, "\n")));
  ASSERT_EQ(0, pclose(nm));
  std::vector<std::string> expected = {
      "GetCbRegisterCusAviDemuxer", "GetCbRegisterPluginAvi", "GetCbRegisterVFIAviMuxer",
      "RegisterAviDemuxer",         "RegisterAviMuxer",       "RegisterAviStreamAac",
      "RegisterAviStreamH264",      "RegisterAviStreamHevc",  "RegisterAviStreamJpeg",
      "RegisterAviStreamPcm",       "RegisterAviStreamTxt",   "RegisterAviVideoTags",
      "RegisterOptCusAviDemuxer",   "RegisterOptPluginAvi",   "RegisterOptVFIAviMuxer",
      "RegisterPluginAvi",          "__MODULE_string",        "__cb_register_PluginAvi"};
  if (GetCbRegisterVFIAviMuxer(nullptr) != nullptr)  // a build with the optional classes
    for (char const* name : {"RegisterVFIAviMuxer", "RegisterCusAviDemuxer",
                             "__cb_register_VFIAviMuxer", "__cb_register_CusAviDemuxer"})
      expected.push_back(name);
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(expected, symbols);
  EXPECT_STREQ("pluginavi@version:1.0.1.*.6872", __MODULE_string);
  EXPECT_NE(nullptr, __cb_register_PluginAvi);
}

// docs.properties compares the classes and their properties with their page.
TEST(Entry, RegistersItsClasses) {
  RegisterClasses();
  EXPECT_EQ("AviMuxer-avi-muxer", IClass::Find("avi-muxer", false)->Alias());
  for (IClass const* record : IClass::All()) {
    if (record->Module() != "pluginavi") continue;
    SCOPED_TRACE(record->Alias());
    EXPECT_EQ(0x10001u, record->Version());
    EXPECT_EQ("Orvane", record->Vendor());
    EXPECT_FALSE(record->Author().empty());
  }
  RegisterAviMuxer("Another-name");
  EXPECT_NE(nullptr, IClass::Find("Another-name", true));
}

}  // namespace
}  // namespace kestro::test
