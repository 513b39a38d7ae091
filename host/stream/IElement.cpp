#include "stream/IElement.h"

#include "stream/Callout.h"

namespace kestro::stream {

IElement::IElement(char const* name) : Object(name) {}

IElement::~IElement() = default;

void IElement::OnMessage(MessageHandler handler) {
  auto taken = std::make_shared<MessageHandler const>(std::move(handler));
  std::lock_guard lock(_handlerMutex);
  _handler.swap(taken);
}

bool IElement::SendMessageUp(char const* type, char const* text, base::AttrSet* attrs) {
  std::shared_ptr<MessageHandler const> handler;
  {
    std::lock_guard lock(_handlerMutex);
    handler = _handler;
  }
  Callout const callout;
  return handler == nullptr || !*handler || (*handler)(*this, type, text, attrs);
}

IPort* IElement::AddPort(bool input, char const* codecs) {
  return _ports.emplace_back(std::make_unique<IPort>(*this, input, codecs)).get();
}

}  // namespace kestro::stream
