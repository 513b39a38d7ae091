// Sinks that write a container.
#pragma once

#include "stream/IIO.h"
#include "stream/ISink.h"

namespace kestro::stream {

// Recording from an application:
//
//   auto const muxer = Make<IMuxer>("avi-muxer");
//   muxer->Set("path", "out.avi");
//   IPort* video = muxer->AddInput();
//   video->Offer(media);                          // every input's media before the first packet
//   muxer->StatusChange(IStatus::kRunning);
//   while (...) video->Push(*packet);             // false: refused, see Check()
//   bool ok = muxer->StatusChange(IStatus::kClosed) && muxer->Check();
//
// Write failures reach the application as the message "error", one for each failed call of the
// stream, and through Check() and CheckIO(). The packet that causes a failure is refused, and so
// are all later packets. If the file could not be opened, the next packet tries again. Otherwise,
// close the file, which stores what the device still accepts; Check() stays false. Problems that
// put nothing recorded at risk are reported as the message "warning". Its attribute "reason" is
// "index-full" if the space reserved for the index is used up.
class KESTRO_API IMuxer : public ISink, public IIO {
 public:
  explicit IMuxer(char const* name);

  // Opens and closes the output. The element calls Open when its first packet arrives.
  bool Open() override;
  bool Close() override;

  // Puts the element into its error state and sends the message "error". `io` is the failed stream,
  // or null if there is none.
  virtual bool IOError(base::IO* io);

  static base::PropertyList const& Properties();

 protected:
  // Sets the error state for an error of the element itself, not of its stream.
  void Fail(char const* text);
  void ClearError();
};

}  // namespace kestro::stream
