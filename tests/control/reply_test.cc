#include "control/reply.h"

#include <gtest/gtest.h>

namespace Tarnvale::KioskService {
namespace {

TEST(ReplyOk, HasTheSingleMemberOk) {
  EXPECT_EQ(ReplyOk(), R"({"ok":true})");
}

TEST(ReplyError, TellsTheCodeBehindOk) {
  EXPECT_EQ(ReplyError("unknown_command"), R"({"ok":false,"error":"unknown_command"})");
}

}  // namespace
}  // namespace Tarnvale::KioskService
