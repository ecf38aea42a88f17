#include "support/bridge.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <string>

#include "tests/unit/support/captured_log.h"

namespace {

struct Receiver {
    virtual ~Receiver() = default;
    virtual bool take(const std::string& text) {
        m_seen = "base " + text;
        return true;
    }
    bool takeFlag(bool flag) { return flag; }
    int answer() { return 42; }
    virtual bool isBase() { return true; }
    std::string m_seen;
};

struct DerivedReceiver : Receiver {
    bool take(const std::string& text) override {
        m_seen = "derived " + text;
        return true;
    }
    bool isBase() override { return false; }
};

// An anchor whose memory outlives it. The calls through it are the misuse that the checker of virtual tables is there
// to find, and that the bridge is there to survive.
template <class Anchor>
class Destroyed {
public:
    template <class... Args>
    explicit Destroyed(Args&&... args) {
        m_anchor = new (m_memory) Anchor(args...);
        m_anchor->~Anchor();
    }

    bool isValid() const { return m_anchor->isValid(); }

    template <class... Args>
    __attribute__((no_sanitize("vptr"))) auto callCb(Args&&... args) const {
        return m_anchor->callCb(args...);
    }
    __attribute__((no_sanitize("vptr"))) auto get() const { return m_anchor->get(); }

private:
    alignas(Anchor) std::byte m_memory[sizeof(Anchor)];
    Anchor* m_anchor;
};

}  // namespace

TEST(Bridge, CallsTheMemberFunctionWithItsArgument) {
    Receiver receiver;
    const BridgeAnchor<Receiver, const std::string&, bool> anchor(receiver, &Receiver::take);
    const BridgeHook<const std::string&, bool>& hook = anchor;
    EXPECT_TRUE(hook.isValid());
    EXPECT_TRUE(hook.callCb("text"));
    EXPECT_EQ(receiver.m_seen, "base text");
}

TEST(Bridge, VirtualMemberFunctionRunsAsOverridden) {
    DerivedReceiver receiver;
    const BridgeAnchor<Receiver, const std::string&, bool> anchor(receiver, &Receiver::take);
    EXPECT_TRUE(anchor.callCb("text"));
    EXPECT_EQ(receiver.m_seen, "derived text");
    const BridgeAnchorVoid<Receiver, bool> voidAnchor(receiver, &Receiver::isBase);
    EXPECT_FALSE(voidAnchor.callCb());
}

TEST(Bridge, PassesAFlagOn) {
    Receiver receiver;
    const BridgeAnchor<Receiver, bool, bool> anchor(receiver, &Receiver::takeFlag);
    EXPECT_TRUE(anchor.callCb(true));
    EXPECT_FALSE(anchor.callCb(false));
}

TEST(Bridge, VoidFormAnswersWhatTheMemberFunctionDoes) {
    Receiver receiver;
    const BridgeAnchorVoid<Receiver, int> anchor(receiver, &Receiver::answer);
    const BridgeHookVoid<int>& hook = anchor;
    EXPECT_EQ(hook.callCb(), 42);
    EXPECT_EQ(hook.get(), 42);
}

TEST(Bridge, CallAfterItsEndIsReportedAndAnswersFalse) {
    const CapturedLog log;
    Receiver receiver;
    Destroyed<BridgeAnchor<Receiver, const std::string&, bool>> anchor(receiver, &Receiver::take);
    EXPECT_FALSE(anchor.isValid());
    EXPECT_FALSE(anchor.callCb("text"));
    EXPECT_EQ(receiver.m_seen, "");
    EXPECT_EQ(log.count(LogLevel::Error, "called after its end"), 1);
}

TEST(Bridge, VoidCallAfterItsEndIsReportedAndAnswersTheDefault) {
    const CapturedLog log;
    Receiver receiver;
    Destroyed<BridgeAnchorVoid<Receiver, int>> anchor(receiver, &Receiver::answer);
    EXPECT_EQ(anchor.callCb(), 0);
    EXPECT_EQ(anchor.get(), 0);
    EXPECT_EQ(log.count(LogLevel::Error, "called after its end"), 2);
}
