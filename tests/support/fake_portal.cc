#include "support/fake_portal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace Tarnvale::KioskService {
namespace {

constexpr char kApi[] = "/api/";

std::string PathOf(const std::string& url) {
  const std::size_t begin = url.find(kApi);
  return begin == std::string::npos ? url : url.substr(begin);
}

}  // namespace

void FakePortal::Answers(const std::string& path, std::int32_t status, const std::string& body) {
  AnswersWith(path, [status, body](const PortalCall&) {
    return Http{.ok = true, .status = status, .body = body, .error = {}};
  });
}

void FakePortal::IsUnreachable(const std::string& path, const std::string& error) {
  AnswersWith(path, [error](const PortalCall&) {
    return Http{.ok = false, .status = 0, .body = {}, .error = error};
  });
}

void FakePortal::AnswersWith(const std::string& path,
                             std::function<Http(const PortalCall&)> answer) {
  const std::lock_guard lock(mutex_);
  answers_[path] = std::move(answer);
}

std::vector<PortalCall> FakePortal::Calls() const {
  const std::lock_guard lock(mutex_);
  return calls_;
}

int FakePortal::CallsTo(const std::string& path) const {
  const std::vector<PortalCall> calls = Calls();
  return static_cast<int>(std::count_if(calls.begin(), calls.end(), [&](const PortalCall& call) {
    return PathOf(call.url) == path;
  }));
}

Http FakePortal::Exchange(const PortalCall& call) {
  std::function<Http(const PortalCall&)> answer;
  {
    const std::lock_guard lock(mutex_);
    calls_.push_back(call);
    const auto found = answers_.find(PathOf(call.url));
    if (found != answers_.end()) answer = found->second;
  }
  if (answer) return answer(call);
  ADD_FAILURE() << "the portal was asked for " << call.url;
  return {.ok = false, .status = 0, .body = {}, .error = "no answer was prepared"};
}

}  // namespace Tarnvale::KioskService
