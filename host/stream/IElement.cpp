#include "stream/IElement.h"

namespace kestro::stream {

IElement::IElement(char const* name) : Object(name) {}

IElement::~IElement() = default;

bool IElement::SendMessageUp(char const* type, char const* text, base::AttrSet*) {
  return !_handler || _handler(*this, type, text);
}

IPort* IElement::AddPort(bool input, char const* codecs) {
  return _ports.emplace_back(std::make_unique<IPort>(*this, input, codecs)).get();
}

}  // namespace kestro::stream
