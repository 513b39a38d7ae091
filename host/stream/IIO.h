// The stream that a muxer writes or a demuxer reads.
#pragma once

#include <memory>
#include <string>

#include "base/File.h"
#include "base/IO.h"
#include "base/PropertyList.h"

namespace kestro::stream {

// Either a file named by a path, which is opened and closed here, or an IO that the application
// lends. A lent IO must outlive the element's use of it.
class KESTRO_API IIO {
 public:
  virtual ~IIO() = default;

  // `mode` is "rb" or "wb". If the stream cannot be opened, returns false and sets Why(). A lent IO
  // is rewound and, for "wb", emptied.
  bool Open(char const* mode);
  // False if the system reports a late error. True if nothing is open.
  bool Close();
  std::string const& Why() const { return _why; }
  base::IO* Stream() const { return _io; }

 protected:
  // Replaces Stream() with an IO that reads or writes through the open one. Close deletes it before
  // it closes the stream. With null, Stream() is null until the next Open.
  void Cover(std::unique_ptr<base::IO> cover);
  // Whether Cover has set such an IO, for the path or lent IO that is set now.
  bool Covered() const;

  // The properties of every element with a stream, for its base class C.
  template <class C>
  static base::PropertyList const& PropertiesOf();

  std::string _path;
  base::IO* _lent = nullptr;
  base::IO* _io = nullptr;  // null unless open

  // For IOCallBack, which reports every transfer of the element.
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
  // Never destroyed: registered classes refer to it.
  static auto const* const made = [] {
    auto* list = new base::PropertyList;
    list->Member<C>("path", &C::_path, "file to open");
    list->Member<C>("io", &C::_lent, "stream to use instead of a file; the application owns it");
    list->Member<C>("notifyid", &C::_notifyId, "first argument of the notification function");
    list->Member<C>("notify", &C::_notify, "function called for every transfer: id, data, bytes");
    return list;
  }();
  return *made;
}

}  // namespace kestro::stream
