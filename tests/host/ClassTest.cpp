// The class registry, properties by name, loading modules, and assertions.
#include "base/IClass.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/Module.h"

namespace kestro::base {
namespace {

struct Widget : Object {
  explicit Widget(int n = 0) : Object("Widget"), count(n) {}
  int Twice() { return 2 * count; }
  int count;
  unsigned char small = 7;
  std::string text;
  Widget* other = nullptr;
};
struct Gadget : Object {
  Gadget() : Object("Gadget") {}
};

TEST(Class, LookUpMatchesNamesInOrder) {
  for (char const* alias : {"LookA-ogg-stream-h264", "LookB-ogg-muxer", "LookC-ogg-muxer-vfi",
                            "LookD-h264-ogg-ogg", "ogg-muxer-vfi-x", "muxer-vfi"})
    TClass<Gadget>::Register(alias, {});
  struct {
    char const *name, *alias;
  } const table[] = {
      {"LookA-stream-h264", "LookA-ogg-stream-h264"},
      {"LookA-h264-stream", nullptr},
      {"LookD-ogg-ogg", "LookD-h264-ogg-ogg"},
      {"LookB-muxer", "LookB-ogg-muxer"},
      {"LookA-ogg-stream-ogg", nullptr},
      {"LookB-", nullptr},
      {"", nullptr},
      {nullptr, nullptr},
      // An exact match precedes an earlier one; otherwise the earlier of two matches counts.
      {"muxer-vfi", "muxer-vfi"},
      {"ogg-muxer-vfi", "LookC-ogg-muxer-vfi"}};
  for (auto const& row : table) {
    SCOPED_TRACE(row.name ? row.name : "null");
    auto const* found = IClass::Find(row.name, false);
    EXPECT_EQ(found ? found->Alias() : "none", row.alias ? row.alias : "none");
    auto const* exact = IClass::Find(row.name, true);
    EXPECT_EQ(exact != nullptr, row.alias && !std::strcmp(row.name, row.alias));
  }
}

TEST(Class, TakenAliasIsReported) {
  IClass* const first = TClass<Gadget>::Register("Taken-alias", {});
  ASSERT_NE(first, nullptr);
  for (bool const direct : {true, false}) {
    SCOPED_TRACE(direct ? "direct" : "by its type");
    ConsoleCapture console;
    EXPECT_EQ(direct ? IClass::Register(std::make_unique<IClass>("Taken-alias", PropertyList()))
                     : TClass<Widget>::Register("Taken-alias", {}),
              nullptr);
    EXPECT_EQ(console.Text(),
              "\033[31mbase/reflect/TClass/74/Register:\tcl,class existed:Taken-alias\n\033[0m");
    EXPECT_EQ(IClass::Find("Taken-alias", true), first);
  }
}

TEST(Class, MakesObjectsWithParameters) {
  PropertyList base, list;
  base.Member<Widget>("text", &Widget::text, "inherited");
  base.Member<Widget>("small", &Widget::count, "hidden by its own");
  list.Member<Widget>("count", &Widget::count, "");
  list.Member<Widget>("small", &Widget::small, "");
  list.Member<Widget>("other", &Widget::other, "");
  list.Getter<Widget>("twice", &Widget::Twice, "");
  list.Inherit(base);
  TClass<Widget>::Register("Widget-test-widget", list)->Constructor<Widget, int>();
  AttrSet attrs;
  EXPECT_EQ(IClass::New(attrs), nullptr);
  attrs.Add("Register", "test-widget");
  EXPECT_EQ(IClass::New<Widget>(attrs, 5u), nullptr) << "no such constructor";
  EXPECT_EQ(IClass::New<Gadget>(attrs), nullptr);
  std::unique_ptr<Widget> widget(IClass::New<Widget>(attrs, 5));
  ASSERT_NE(widget, nullptr);
  ASSERT_EQ(widget->count, 5);
  struct {
    char const *name, *value;
    bool taken;
  } const table[] = {{"Small", "1", false},       {nullptr, "1", false},
                     {"small", "200", true},      {"small", "256", false},
                     {"text", "inherited", true}, {"count", "99", true},
                     {"other", "0x1000", false},  {"twice", "1", false}};
  for (auto const& row : table)
    EXPECT_EQ(widget->Set(row.name, row.value), row.taken) << row.name << "=" << row.value;
  EXPECT_EQ(std::to_string(widget->small) + widget->text, "200inherited");
  signed char narrow = 1;
  EXPECT_FALSE(widget->Get("small", narrow)) << "200 does not fit";
  EXPECT_TRUE(widget->Get("count", narrow));
  EXPECT_EQ(narrow, 99);

  struct : Widget {
  } part;
  Gadget gadget;
  EXPECT_TRUE(widget->Set("other", static_cast<Object*>(&part)));
  EXPECT_FALSE(widget->Set("other", static_cast<Object*>(&gadget)));
  Object* other = nullptr;
  EXPECT_TRUE(widget->Get("other", other));
  EXPECT_EQ(other, &part);
  EXPECT_EQ(widget->other, &part);
  EXPECT_TRUE(widget->Set("other", static_cast<Object*>(nullptr)));
  attrs.Add("text", "configured");
  EXPECT_TRUE(widget->Configure(attrs));
  EXPECT_EQ(widget->text, "configured");
  attrs.Add("nonsense", "1");
  EXPECT_FALSE(widget->Configure(attrs));
}

// The test program contains the plug-in's objects. Once they are registered, the module's
// registration is refused, which shows that it took place. Modules stay: this needs a process of
// its own.
int LoadTwice() {
  ReflectRun();
  ConsoleCapture console;
  if (!LoadPlugin(TEST_PLUGIN)) return 1;
  std::string const first = console.Text();
  if (first.find("class existed:AviMuxer-avi-muxer") == first.npos) return 2;
  return LoadPlugin(TEST_PLUGIN) && console.Text() == first ? 0 : 3;
}

TEST(ModuleDeathTest, LoadingRegistersOnceOrGivesAReason) {
  EXPECT_EXIT(std::_Exit(LoadTwice()), testing::ExitedWithCode(0), "");
  for (char const* path : std::initializer_list<char const*>{"/nowhere/none.so", "", nullptr}) {
    SCOPED_TRACE(path != nullptr ? path : "null");
    std::string why;
    EXPECT_FALSE(LoadPlugin(path, &why));
    EXPECT_FALSE(why.empty());
  }
}

TEST(ConsoleDeathTest, AssertionsStopEveryBuild) {
  auto const fail = [] {
    dup2(2, 1);
    std::printf("printed before, ");
    KESTRO_ASSERT(1 + 1 == 3);
  };
  EXPECT_EXIT(fail(), testing::KilledBySignal(SIGABRT),
              "printed before, [-a-z]+: tests/host/ClassTest\\.cpp:[0-9]+: .*TestBody\\(\\).*: "
              "Assertion `1 \\+ 1 == 3' failed\\.\n");
}

}  // namespace
}  // namespace kestro::base
