#include "support/save_counter.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kBufferBytes = 64 * 1024;

int CountName(const std::string& events, const std::string& name) {
  int count = 0;
  std::size_t position = 0;
  while (position + sizeof(inotify_event) <= events.size()) {
    inotify_event event = {};
    std::memcpy(&event, events.data() + position, sizeof event);
    position += sizeof event;
    if (name == events.data() + position) ++count;
    position += event.len;
  }
  return count;
}

}  // namespace

SaveCounter::SaveCounter(const std::string& directory, std::string name)
    : events_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), name_(std::move(name)) {
  // The kernel folds equal events in a row into one. The temporary file's leaving, which comes
  // between two arrivals, keeps them apart.
  if (::inotify_add_watch(events_.Get(), directory.c_str(), IN_MOVED_FROM | IN_MOVED_TO) < 0) {
    ADD_FAILURE() << "cannot watch " << directory;
  }
}

int SaveCounter::Count() {
  std::string events(kBufferBytes, '\0');
  ssize_t length = 0;
  while ((length = ::read(events_.Get(), events.data(), events.size())) > 0) {
    count_ += CountName(events.substr(0, static_cast<std::size_t>(length)), name_);
  }
  return count_;
}

}  // namespace Tarnvale::KioskService
