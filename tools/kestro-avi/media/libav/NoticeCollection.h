// Collects the messages of a recording that may go on for months.
#pragma once

#include <set>
#include <string>

#include "cli/Notice.h"
#include "cli/Text.h"

namespace kestro::tool {

// Keeps the first messages, each one once.
class NoticeCollection {
 public:
  void Add(Notices const& notices) {
    for (Notice const& notice : notices) {
      if (_texts.count(notice.text) != 0) continue;
      if (_list.size() >= kMost) {
        ++_more;
        continue;
      }
      _texts.insert(notice.text);
      _list.push_back(notice);
    }
  }
  Notices All() const {
    Notices all = _list;
    if (_more != 0) all.emplace_back("and " + Quantity(_more, "more message"));
    return all;
  }

 private:
  static constexpr std::size_t kMost = 100;
  Notices _list;
  std::set<std::string> _texts;
  std::size_t _more = 0;
};

}  // namespace kestro::tool
