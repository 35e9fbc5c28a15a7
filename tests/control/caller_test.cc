// What the service learns about a caller, and the classes that follow from it.

#include "control/caller.h"

#include <optional>

#include "core/state.h"
#include "support/service_test.h"

namespace Tarnvale::KioskService {
namespace {

constexpr int kPid = 4321;

SessionInfo SessionOf(std::uint32_t uid, const char* id, bool remote = false,
                      const char* sessionClass = "user") {
  return {.id = id,
          .uid = uid,
          .name = "somebody",
          .remote = remote,
          .sessionClass = sessionClass,
          .tty = {}};
}

class IdentifyCallerTest : public ServiceTest {
 protected:
  Caller Identify(std::uint32_t uid) {
    Caller caller;
    IdentifyCaller(kPid, uid, caller);
    return caller;
  }
};

TEST_F(IdentifyCallerTest, AsksForTheSessionOfTheProcess) {
  ops.sessionOfPid = [](int pid, SessionInfo* info) {
    EXPECT_EQ(pid, kPid);
    EXPECT_TRUE(info->remote) << "nothing is known of the session yet";
    *info = PersonSession();
    return true;
  };

  const Caller caller = Identify(kTestPersonUid);

  EXPECT_EQ(caller.pid, kPid);
  EXPECT_EQ(caller.uid, kTestPersonUid);
  EXPECT_EQ(caller.session, kTestPersonSession);
  EXPECT_TRUE(caller.interactive);
  EXPECT_FALSE(caller.root);
  EXPECT_FALSE(caller.kioskAccount);
}

TEST_F(IdentifyCallerTest, KnowsRootByItsUid) {
  SessionsAre({});

  EXPECT_TRUE(Identify(0).root);
  EXPECT_FALSE(Identify(1).root);
}

TEST_F(IdentifyCallerTest, KeepsNothingOfAnEarlierCaller) {
  SessionsAre({});
  Caller caller = {
      .root = true, .interactive = true, .kioskAccount = true, .uid = 7, .pid = 7, .session = "7"};

  IdentifyCaller(kPid, kTestPersonUid, caller);

  EXPECT_FALSE(caller.root || caller.interactive || caller.kioskAccount);
  EXPECT_EQ(caller.session, "");
}

TEST_F(IdentifyCallerTest, TakesNothingFromAFailedLookup) {
  ops.sessionOfPid = [](int, SessionInfo* info) {
    *info = PersonSession();
    return false;
  };

  const Caller caller = Identify(kTestPersonUid);

  EXPECT_EQ(caller.session, "");
  EXPECT_FALSE(caller.interactive);
}

struct InteractiveRow {
  const char* name;
  std::optional<SessionInfo> session;
  bool interactive;  // And true in every row when sessions are relaxed.
};

// The rows of a table carry their names.
constexpr auto kNameOfRow = [](const auto& row) { return std::string(row.param.name); };

class InteractiveRows : public IdentifyCallerTest,
                        public ::testing::WithParamInterface<InteractiveRow> {
 protected:
  void SetUp() override {
    SessionsAre({});
    if (GetParam().session) CallerIsIn(*GetParam().session);
  }
};

TEST_P(InteractiveRows, TakeALocalSessionOfClassUser) {
  EXPECT_EQ(Identify(kTestPersonUid).interactive, GetParam().interactive);
}

TEST_P(InteractiveRows, AreAllInteractiveWhenSessionsAreRelaxed) {
  config.localSession = false;
  UseConfig();

  EXPECT_TRUE(Identify(kTestPersonUid).interactive);
}

TEST_P(InteractiveRows, KeepTheSessionWhateverItsKind) {
  EXPECT_EQ(Identify(kTestPersonUid).session, GetParam().session ? "9" : "");
}

INSTANTIATE_TEST_SUITE_P(
    IdentifyCaller, InteractiveRows,
    ::testing::Values(
        InteractiveRow{"Local", SessionOf(kTestPersonUid, "9"), true},
        InteractiveRow{"Remote", SessionOf(kTestPersonUid, "9", true), false},
        InteractiveRow{"Greeter", SessionOf(kTestPersonUid, "9", false, "greeter"), false},
        InteractiveRow{"UserEarly", SessionOf(kTestPersonUid, "9", false, "user-early"), false},
        InteractiveRow{"InCapitals", SessionOf(kTestPersonUid, "9", false, "User"), false},
        InteractiveRow{"WithoutClass", SessionOf(kTestPersonUid, "9", false, ""), false},
        InteractiveRow{"WithoutSession", std::nullopt, false}),
    kNameOfRow);

TEST_F(IdentifyCallerTest, KnowsTheKioskAccountByItsRecordedUidAlone) {
  SessionsAre({});
  StateSetString(StateKey::kAccountUid, "1501");

  EXPECT_TRUE(Identify(1501).kioskAccount);
  EXPECT_FALSE(Identify(1502).kioskAccount);
  EXPECT_FALSE(Identify(150).kioskAccount);
  EXPECT_EQ(calls.Count("lookupKioskAccount"), 0);
}

TEST_F(IdentifyCallerTest, KnowsNoKioskAccountWithoutARecordedUid) {
  SessionsAre({});

  for (const char* value : {"null", "\"\"", "1501", "\"01501\"", "\" 1501\"", "\"1501.0\""}) {
    StateSet(StateKey::kAccountUid, Json::Parse(value).value());
    EXPECT_FALSE(Identify(1501).kioskAccount) << value;
    EXPECT_FALSE(Identify(0).kioskAccount) << value;
  }
}

class IsKioskSessionTest : public ServiceTest {
 protected:
  void SetUp() override {
    Provision();
    SessionsAre({PersonSession(), KioskSession()});
  }
  void RelaxSessions() {
    config.localSession = false;
    UseConfig();
  }
};

TEST_F(IsKioskSessionTest, HoldsForTheAccountsLocalSession) {
  EXPECT_TRUE(IsKioskSession(kTestKioskSession));

  const std::vector<std::string> expected = {"lookupKioskAccount", "listSessions"};
  EXPECT_EQ(calls.Names(), expected);
}

TEST_F(IsKioskSessionTest, AsksNobodyAboutAnEmptyId) {
  EXPECT_FALSE(IsKioskSession(""));

  EXPECT_TRUE(calls.Names().empty());
}

TEST_F(IsKioskSessionTest, AsksNoLogindWithoutAnIntactAccount) {
  AccountIs(kTestKioskUid + 1);
  EXPECT_FALSE(IsKioskSession(kTestKioskSession));
  AccountIsMissing();
  EXPECT_FALSE(IsKioskSession(kTestKioskSession));
  AccountLookupFails();
  EXPECT_FALSE(IsKioskSession(kTestKioskSession));
  StateClear(StateKey::kAccountUid);
  EXPECT_FALSE(IsKioskSession(kTestKioskSession));

  EXPECT_EQ(calls.Count("lookupKioskAccount"), 3);
  EXPECT_EQ(calls.Count("listSessions"), 0);
}

TEST_F(IsKioskSessionTest, ComparesTheWholeId) {
  for (const char* id : {"c", "c77", "C7", "7", "c7 "})
    EXPECT_FALSE(IsKioskSession(id)) << id;
}

TEST_F(IsKioskSessionTest, FailsForASessionOfSomebodyElse) {
  EXPECT_FALSE(IsKioskSession(kTestPersonSession));
}

TEST_F(IsKioskSessionTest, FailsWhenLogindDoesNotAnswer) {
  SessionsAre({});

  EXPECT_FALSE(IsKioskSession(kTestKioskSession));
}

TEST_F(IsKioskSessionTest, TakesTheFirstSessionOfThatId) {
  SessionsAre({SessionOf(kTestPersonUid, kTestKioskSession), KioskSession()});

  EXPECT_FALSE(IsKioskSession(kTestKioskSession));
}

TEST_F(IsKioskSessionTest, TakesARemoteSessionOnlyWhenSessionsAreRelaxed) {
  SessionsAre({SessionOf(kTestKioskUid, kTestKioskSession, true)});

  EXPECT_FALSE(IsKioskSession(kTestKioskSession));
  RelaxSessions();
  EXPECT_TRUE(IsKioskSession(kTestKioskSession));
}

TEST_F(IsKioskSessionTest, StaysWithTheAccountWhenSessionsAreRelaxed) {
  RelaxSessions();

  EXPECT_FALSE(IsKioskSession(kTestPersonSession));
  EXPECT_FALSE(IsKioskSession("another"));
}

TEST_F(IsKioskSessionTest, DoesNotAskForTheClassOfTheSession) {
  SessionsAre({SessionOf(kTestKioskUid, kTestKioskSession, false, "manager")});

  EXPECT_TRUE(IsKioskSession(kTestKioskSession));
}

// The three classes of one caller, as a text such as "interactive enrolling".
std::string ClassesOf(const Caller& caller) {
  std::string classes;
  if (IsInteractiveUser(caller)) classes += " interactive";
  if (IsEnrollingUser(caller)) classes += " enrolling";
  if (IsInKioskSession(caller)) classes += " kiosk";
  return classes.empty() ? "none" : classes.substr(1);
}

struct ClassRow {
  const char* name;
  std::uint32_t uid;
  std::optional<SessionInfo> session;
  const char* classes;
  const char* relaxedClasses;  // With --no-local-session.
};

class CallerClasses : public IsKioskSessionTest, public ::testing::WithParamInterface<ClassRow> {
 protected:
  void SetUp() override {
    IsKioskSessionTest::SetUp();
    if (!GetParam().session) return;
    SessionsAre({*GetParam().session});
    CallerIsIn(*GetParam().session);
  }
  std::string Classes() {
    Caller caller;
    IdentifyCaller(kPid, GetParam().uid, caller);
    return ClassesOf(caller);
  }
};

TEST_P(CallerClasses, FollowUidAndSession) {
  EXPECT_EQ(Classes(), GetParam().classes);
}

TEST_P(CallerClasses, OpenUpWhenSessionsAreRelaxed) {
  RelaxSessions();

  EXPECT_EQ(Classes(), GetParam().relaxedClasses);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CallerClasses,
    ::testing::Values(
        ClassRow{"RootWithoutSession", 0, std::nullopt, "none", "interactive"},
        ClassRow{"RootAtTheConsole", 0, SessionOf(0, "4"), "interactive", "interactive"},
        ClassRow{"RootFromAfar", 0, SessionOf(0, "4", true), "none", "interactive"},
        ClassRow{"PersonAtTheConsole", kTestPersonUid, SessionOf(kTestPersonUid, "4"),
                 "interactive enrolling", "interactive enrolling"},
        ClassRow{"PersonFromAfar", kTestPersonUid, SessionOf(kTestPersonUid, "4", true), "none",
                 "interactive enrolling"},
        ClassRow{"PersonWithoutSession", kTestPersonUid, std::nullopt, "none",
                 "interactive enrolling"},
        ClassRow{"Greeter", 113, SessionOf(113, "c1", false, "greeter"), "none",
                 "interactive enrolling"},
        ClassRow{"KioskInItsSession", kTestKioskUid, SessionOf(kTestKioskUid, "c7"), "kiosk",
                 "kiosk"},
        ClassRow{"KioskFromAfar", kTestKioskUid, SessionOf(kTestKioskUid, "c7", true), "none",
                 "kiosk"},
        ClassRow{"KioskWithoutSession", kTestKioskUid, std::nullopt, "none", "none"},
        ClassRow{"PersonInTheKiosksSession", kTestPersonUid, SessionOf(kTestKioskUid, "c7"),
                 "interactive enrolling", "interactive enrolling"},
        ClassRow{"RootInTheKiosksSession", 0, SessionOf(kTestKioskUid, "c7"), "interactive",
                 "interactive"},
        ClassRow{"KioskInAnothersSession", kTestKioskUid, SessionOf(kTestPersonUid, "4"), "none",
                 "none"}),
    kNameOfRow);

using CallerClassesTest = IsKioskSessionTest;

TEST_F(CallerClassesTest, HaveNoKioskCallerAfterTheAccountIsForgotten) {
  CallerIsIn(KioskSession());
  StateClear(StateKey::kAccountUid);
  Caller caller;

  IdentifyCaller(kPid, kTestKioskUid, caller);

  EXPECT_FALSE(caller.kioskAccount);
  EXPECT_EQ(ClassesOf(caller), "interactive enrolling");
}

TEST_F(CallerClassesTest, AskThePlatformOnlyAboutAKioskAccountInASession) {
  Caller withoutSession = Kiosk();
  withoutSession.session.clear();

  EXPECT_FALSE(IsInKioskSession(Person()));
  EXPECT_FALSE(IsInKioskSession(Root()));
  EXPECT_FALSE(IsInKioskSession(withoutSession));
  EXPECT_TRUE(calls.Names().empty());
}

}  // namespace
}  // namespace Tarnvale::KioskService
