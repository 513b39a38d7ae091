// The class registry, properties by name, and loading a module.
#include "base/IClass.h"

#include <gtest/gtest.h>

#include <cstring>

#include "base/Module.h"

namespace kestro::base {
namespace {

class Widget : public Object {
 public:
  Widget() : Object("Widget") {}
  explicit Widget(int n) : Object("Widget"), count(n) {}
  bool Level(char level) { return level != '!' && (letter = level, true); }
  int Twice() { return 2 * count; }

  int count = 0;
  unsigned char small = 7;
  char letter = 'a';
  std::string text;
  Widget* other = nullptr;
};
class Gadget : public Object {
 public:
  Gadget() : Object("Gadget") {}
};
class Part : public Widget {};

IClass* WidgetClass() {
  static auto* record = [] {
    PropertyList base, list;
    base.Member<Widget>("text", &Widget::text, "inherited");
    base.Member<Widget>("small", &Widget::count, "hidden by the own one");
    list.Member<Widget>("count", &Widget::count, "");
    list.Member<Widget>("small", &Widget::small, "");
    list.Setter<Widget>("letter", &Widget::Level, "");
    list.Getter<Widget>("twice", &Widget::Twice, "");
    list.Member<Widget>("other", &Widget::other, "");
    list.Inherit(base);
    auto* made = TClass<Widget>::Register("Widget-test-widget", list);
    made->Constructor<Widget, int>();
    TClass<Part>::Register("Part-test-part", list);
    TClass<Gadget>::Register("Gadget-test-gadget", {});
    return made;
  }();
  return record;
}

std::unique_ptr<Widget> NewWidget() {
  WidgetClass();
  return std::unique_ptr<Widget>(dynamic_cast<Widget*>(Object::New("test-widget")));
}

TEST(Class, LookUpMatchesNamesInOrder) {
  for (char const* alias : {"LookA-ogg-stream-h264", "LookB-ogg-muxer", "LookC-ogg-muxer-vfi",
                            "LookD-h264-ogg-ogg", "ogg-muxer-vfi-x", "muxer-vfi"})
    TClass<Gadget>::Register(alias, {});
  struct {
    char const* name;
    char const* alias;
  } const table[] = {
      {"LookA", "LookA-ogg-stream-h264"},
      {"LookA-stream-h264", "LookA-ogg-stream-h264"},
      {"LookA-h264-stream", nullptr},
      {"LookA-ogg-stream-ogg", nullptr},
      {"LookD-ogg-ogg", "LookD-h264-ogg-ogg"},
      {"LookD-ogg-ogg-ogg", nullptr},
      {"LookB-muxer", "LookB-ogg-muxer"},
      {"LookB-Muxer", nullptr},
      {"LookB-mux", nullptr},
      {"muxer-vfi", "muxer-vfi"},                // the exact one before an earlier match
      {"ogg-muxer-vfi", "LookC-ogg-muxer-vfi"},  // the earlier of two matches
      {"lookb", nullptr},
      {"LookB-", nullptr},
      {"-", nullptr},
      {"", nullptr},
      {nullptr, nullptr},
  };
  for (auto const& row : table) {
    SCOPED_TRACE(row.name ? row.name : "null");
    auto const* found = IClass::Find(row.name, false);
    EXPECT_EQ(found ? found->Alias() : "none", row.alias ? row.alias : "none");
    auto const* exact = IClass::Find(row.name, true);
    EXPECT_EQ(exact != nullptr, row.alias && !std::strcmp(row.name, row.alias));
  }
  EXPECT_EQ(Object::New(nullptr), nullptr);
}

TEST(Class, TakenAliasIsRefusedWithALine) {
  auto* first = TClass<Widget>::Register("Taken-alias", {});
  ASSERT_NE(first, nullptr);
  auto const count = IClass::All().size();
  ConsoleCapture console;
  EXPECT_EQ(TClass<Gadget>::Register("Taken-alias", {}), nullptr);
  EXPECT_EQ(console.Text(),
            "\033[31mbase/reflect/TClass/74/Register:\tcl,class existed:Taken-alias\n\033[0m");
  EXPECT_EQ(IClass::Register(std::make_unique<IClass>("Taken-alias", PropertyList())), nullptr);
  EXPECT_EQ(IClass::Find("Taken-alias", true), first);
  EXPECT_EQ(IClass::All().size(), count);
}

TEST(Class, MakesObjectsByConstructorAndType) {
  WidgetClass();
  AttrSet attrs;
  attrs.Add("Register", "test-widget");
  std::unique_ptr<Widget> five(IClass::New<Widget>(attrs, 5));
  ASSERT_NE(five, nullptr);
  EXPECT_EQ(five->count, 5);
  EXPECT_EQ(five->Class(), WidgetClass());
  EXPECT_EQ(IClass::New<Widget>(attrs, 5u), nullptr);
  EXPECT_EQ(IClass::New<Gadget>(attrs), nullptr);
  AttrSet unknown, none;
  unknown.Add("Register", "no-such-class");
  EXPECT_EQ(IClass::New<Widget>(unknown), nullptr);
  EXPECT_EQ(IClass::New(none), nullptr);
}

TEST(Class, PropertiesByName) {
  auto widget = NewWidget();
  ASSERT_NE(widget, nullptr);
  EXPECT_TRUE(widget->Set("count", "42"));
  EXPECT_TRUE(widget->Set("count", 43ll));
  EXPECT_FALSE(widget->Set("count", 1ll << 40));
  EXPECT_FALSE(widget->Set("Count", 1));
  EXPECT_FALSE(widget->Set(nullptr, 1));
  EXPECT_EQ(widget->count, 43);
  std::string text;
  short narrow = 1;
  EXPECT_TRUE(widget->Get("count", text));
  EXPECT_EQ(text, "43");
  EXPECT_TRUE(widget->GetIntT("twice", narrow));
  EXPECT_EQ(narrow, 86);
  widget->count = 100000;
  EXPECT_FALSE(widget->Get("count", narrow));
  EXPECT_EQ(narrow, 86);
  EXPECT_FALSE(widget->Set("twice", 1)) << "read only";
  EXPECT_TRUE(widget->Set("small", 200)) << "the own property hides the inherited one";
  EXPECT_EQ(widget->small, 200);
  EXPECT_FALSE(widget->Set("small", 256));
  EXPECT_TRUE(widget->Set("text", "inherited"));
  EXPECT_EQ(widget->text, "inherited");
  EXPECT_TRUE(widget->Set("letter", "Q"));
  EXPECT_FALSE(widget->Set("letter", '!')) << "the setter's own refusal";
  EXPECT_FALSE(widget->Get("letter", text)) << "write only";
  EXPECT_EQ(widget->letter, 'Q');
  EXPECT_FALSE(Widget().Set("count", 1)) << "made without the registry";
}

TEST(Class, ObjectPointersAreCheckedByType) {
  auto widget = NewWidget();
  Part part;
  Gadget gadget;
  EXPECT_TRUE(widget->Set("other", static_cast<Object*>(&part)));
  EXPECT_EQ(widget->other, &part);
  EXPECT_FALSE(widget->Set("other", static_cast<Object*>(&gadget)));
  EXPECT_FALSE(widget->Set("other", "0x1000"));
  EXPECT_FALSE(widget->Set("other", 0));
  EXPECT_EQ(widget->other, &part);
  EXPECT_TRUE(widget->Set("other", static_cast<Object*>(nullptr)));
  EXPECT_EQ(widget->other, nullptr);
}

TEST(Class, ConfigureAppliesAllButTheDescribingKeys) {
  auto widget = NewWidget();
  Gadget owner;
  std::initializer_list<KeyValuePair> pairs = {{"count", "9"}, {"text", "x"}};
  AttrSet attrs;
  Object::AttrSetInit(attrs, &pairs, "test-widget", "name", "r", &owner);
  EXPECT_STREQ(attrs.Find("Owner"), "Gadget");
  EXPECT_STREQ(attrs.Find("Mode"), "r");
  EXPECT_TRUE(widget->Configure(attrs));
  EXPECT_EQ(widget->count, 9);
  EXPECT_EQ(widget->text, "x");
  attrs.Add("nonsense", "1");
  EXPECT_FALSE(widget->Configure(attrs));
  EXPECT_FALSE(object("plain").Configure(attrs));
}

TEST(Module, WhatCannotBeLoadedSaysWhy) {
  for (char const* path :
       {"/nowhere/libnone.so", "/dev/null", "", static_cast<char const*>(nullptr)}) {
    std::string why;
    EXPECT_FALSE(LoadPlugin(path, &why)) << (path ? path : "null");
    EXPECT_NE(why, "");
    EXPECT_FALSE(LoadPlugin(path));
  }
}

// The test program has the plug-in's objects of its own: once they are registered, the module's
// registration shows by being refused. In a process of its own, as modules stay.
int LoadTwice() {
  ReflectRun();
  ConsoleCapture console;
  if (!LoadPlugin(TEST_PLUGIN)) return 1;
  std::string const first = console.Text();
  if (first.find("class existed:AviMuxer-avi-muxer") == first.npos) return 2;
  if (!LoadPlugin(TEST_PLUGIN) || console.Text() != first) return 3;
  return IClass::Find("avi-muxer", false) != nullptr ? 0 : 4;
}

TEST(ModuleDeathTest, LoadingRegistersOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(LoadTwice()), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace kestro::base
