#include "verbs/PluginVerb.h"

#include <memory>

#include "base/IClass.h"
#include "cli/Console.h"
#include "cli/Documents.h"
#include "cli/Errors.h"
#include "cli/Plugin.h"

namespace kestro::tool {

using base::IClass;
using base::IProperty;

void PluginVerb::AddTo(Options& options) {
  Option const json = _json.AddTo(options);
  options.Flag("--markdown", _markdown, "Write a page of Markdown tables").Excludes(json);
  options.Text("--plugin", _plugin, "PATH", "The plug-in or its folder");
  options.Footer(
      "Examples:\n  kestro-avi plugin\n  kestro-avi plugin --json | jq '.classes[].alias'");
}

static std::string Version(unsigned version) {
  return std::to_string(version >> 16) + "." + std::to_string(version >> 8 & 0xFF) + "." +
         std::to_string(version & 0xFF);
}

// The value on a new object; empty when it has none or no text form.
static std::string Default(base::Object* fresh, IProperty const& property) {
  std::string text;
  if (fresh == nullptr || !property.CanRead() || !property.Get(*fresh, &text, typeid(text)))
    return "";
  return text.find('\0') == std::string::npos ? text : "";
}

static std::string Type(IProperty const& property) {
  return property.Type() == typeid(std::string) ? "std::string" : base::TypeName(property.Type());
}

static Json Property(base::Object* fresh, IProperty const& property, bool inherited) {
  return {{"name", property.Name()},
          {"type", Type(property)},
          {"default", Default(fresh, property)},
          {"help", property.Help()},
          {"readable", property.CanRead()},
          {"writable", property.CanWrite()},
          {"inherited", inherited}};
}

static Json Class(IClass const& record) {
  auto const made = base::Make<base::object>(record.Alias().c_str());
  auto* fresh = dynamic_cast<base::Object*>(made.get());
  Json properties = Json::array();
  for (auto const& property : record.Properties().Own())
    properties.push_back(Property(fresh, *property, false));
  for (auto const& property : record.Properties().Inherited())
    properties.push_back(Property(fresh, *property, true));
  return {{"alias", record.Alias()},
          {"module", record.Module()},
          {"version", Version(record.Version())},
          {"vendor", record.Vendor()},
          {"properties", std::move(properties)}};
}

static std::string Field(Json const& json, char const* key) {
  return json.at(key).get<std::string>();
}

static std::string Text(Json const& classes) {
  std::string text;
  for (Json const& c : classes) {
    text += Field(c, "alias");
    if (!Field(c, "module").empty())
      text +=
          "  (" + Field(c, "module") + " " + Field(c, "version") + ", " + Field(c, "vendor") + ")";
    text += "\n";
    for (Json const& p : c.at("properties")) {
      std::string line = "  " + Field(p, "name");
      line.resize(std::max<std::size_t>(line.size() + 1, 20), ' ');
      line += Field(p, "type");
      if (!Field(p, "default").empty()) line += " = " + Field(p, "default");
      line.resize(std::max<std::size_t>(line.size() + 1, 56), ' ');
      text += line + Field(p, "help") + "\n";
    }
  }
  return text;
}

// Escapes a table cell: a bar would end it.
static std::string Cell(std::string text) {
  for (std::size_t at = 0; (at = text.find('|', at)) != text.npos; at += 2) text.insert(at, "\\");
  return text;
}

static std::string Code(std::string const& text) {
  return text.empty() ? "" : "`" + Cell(text) + "`";
}

// The page docs/properties.md.
static std::string Markdown(Json const& classes) {
  std::string text =
      "# Properties\n\n"
      "What can be set on the elements, and read from them, by name: `muxer->Set(\"path\", ...)`, "
      "or\n"
      "`--set path=...` of the tool. Written by `kestro-avi plugin --markdown`.\n";
  for (Json const& c : classes) {
    text += "\n## " + Field(c, "alias") + "\n\n";
    text += "Of " + Field(c, "module") + ".";
    if (c.at("properties").empty()) {
      text += " It has no properties.\n";
      continue;
    }
    text += "\n\n| Property | Type | At first | Access | Effect |\n|---|---|---|---|---|\n";
    for (Json const& p : c.at("properties")) {
      bool const read = p.at("readable"), write = p.at("writable");
      text += "| " + Code(Field(p, "name")) + " | " + Code(Field(p, "type")) + " | " +
              Code(Field(p, "default")) + " | " +
              (read && write ? "read, set"
               : read        ? "read"
                             : "set") +
              " | " + Cell(Field(p, "help")) + " |\n";
    }
  }
  return text;
}

int PluginVerb::Run() {
  LoadAviPlugin(_plugin);
  Json classes = Json::array();
  for (IClass const* record : IClass::All()) classes.push_back(Class(*record));
  if (_json)
    SetAnswer({{"classes", std::move(classes)}});
  else
    WriteData(_markdown ? Markdown(classes) : Text(classes));
  return kOk;
}

}  // namespace kestro::tool
