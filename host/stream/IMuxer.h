// Sinks that write a container.
#pragma once

#include "stream/IIO.h"
#include "stream/ISink.h"

namespace kestro::stream {

// A recording, as the application sees it:
//
//   auto const muxer = Make<IMuxer>("avi-muxer");
//   muxer->Set("path", "out.avi");
//   IPort* video = muxer->AddInput();
//   video->Offer(media);                          // every input's media before the first packet
//   muxer->StatusChange(IStatus::kRunning);
//   while (...) video->Push(*packet);             // false: refused, see Check()
//   bool ok = muxer->StatusChange(IStatus::kClosed) && muxer->Check();
//
// Write failures reach the application as the message "error", one for each call of the stream that
// fails, and through Check() and CheckIO(). The packet that meets one is refused, and so are all
// that follow it. If the file could not be opened, the next packet tries again; otherwise close the
// file, which stores what the device still takes; Check() stays false. Whatever puts nothing
// recorded at risk comes as the message "warning"; its attribute "reason" is "index-full" where the
// space reserved for the index is used up.
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
