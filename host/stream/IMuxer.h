// Sinks that write a container.
#pragma once

#include "stream/IIO.h"
#include "stream/ISink.h"

namespace kestro::stream {

// A recording, as the application sees it:
//
//   AttrSet attrs;
//   attrs.Add("Register", "avi-muxer");
//   auto* muxer = IClass::New<IMuxer>(attrs);
//   muxer->Set("path", "out.avi");
//   IPort* video = muxer->AddInput();
//   video->Offer(media);                          // every input's media before the first packet
//   muxer->StatusChange(IStatus::kRunning);
//   while (...) video->Push(*packet);             // false: refused, see Check()
//   bool ok = muxer->StatusChange(IStatus::kClosed) && muxer->Check();
//
// Faults while writing reach the application as the message "error", one for each call of the
// stream that fails, and through Check() and CheckIO(). The packet that meets one is refused, and
// all that follow: where the file could not be opened, the next packet tries again; otherwise the
// file is to be closed, which brings into it what the medium still takes; Check() stays false. What
// puts nothing recorded at risk comes as the message "warning".
class KESTRO_API IMuxer : public ISink, public IIO {
 public:
  explicit IMuxer(char const* name);

  // Opens and closes the output. Called by the element, when its first packet comes.
  bool Open() override;
  bool Close() override;

  // Puts the element into its error state and tells the application. `io` is the failing stream,
  // null when there is none.
  virtual bool IOError(base::IO* io);

  static base::PropertyList const& Properties();

 protected:
  // An error of the element itself, not of its stream.
  void Fail(char const* text);
  void ClearError();
};

}  // namespace kestro::stream
