// The stream that a muxer writes or a demuxer reads.
#pragma once

#include <memory>
#include <string>

#include "base/File.h"
#include "base/IO.h"
#include "base/PropertyList.h"

namespace kestro::stream {

// Either a file named by a path, opened and closed here, or an IO that the application lends and
// that outlives the element's use of it.
class KESTRO_API IIO {
 public:
  virtual ~IIO() = default;

  // "rb" or "wb"; false with Why() set when it cannot be opened. A lent IO is rewound, and emptied
  // for "wb".
  bool Open(char const* mode);
  // False when the system reports a late error. Closing what is not open does nothing.
  bool Close();
  std::string const& Why() const { return _why; }
  base::IO* Stream() const { return _io; }

 protected:
  // Puts an IO that reads or writes through the open one over it: Stream() is that IO then, and
  // Close deletes it first. Null: Stream() is null until the next Open.
  void Cover(std::unique_ptr<base::IO> cover);
  // Whether there is such an IO, over what the path or the lent IO names now.
  bool Covered() const;

  // What every element over a stream has, as properties of its base class C.
  template <class C>
  static base::PropertyList const& PropertiesOf();

  std::string _path;
  base::IO* _lent = nullptr;
  base::IO* _io = nullptr;  // null unless open

  // For IOCallBack: reports every transfer of the element.
  unsigned _notifyId = 0;
  base::IOCallBack::Notify _notify = nullptr;

 private:
  std::unique_ptr<base::FileIO> _file;
  std::unique_ptr<base::IO> _cover;
  std::string _coveredPath;
  base::IO* _coveredLent = nullptr;
  std::string _why;
};

template <class C>
base::PropertyList const& IIO::PropertiesOf() {
  // Never destroyed: class records refer to it.
  static auto const* const made = [] {
    auto* list = new base::PropertyList;
    list->Member<C>("path", &C::_path, "file to open");
    list->Member<C>("io", &C::_lent, "stream to use instead of a file; the application owns it");
    list->Member<C>("notifyid", &C::_notifyId, "first argument of the notification function");
    list->Member<C>("notify", &C::_notify, "function told of every transfer: id, data, bytes");
    return list;
  }();
  return *made;
}

}  // namespace kestro::stream
