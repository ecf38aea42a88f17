#include <gtest/gtest.h>

#include <thread>

#include "mediautil/object/media_obj_impl.h"
#include "mediautil/object/rereader_lock.h"
#include "tests/kit/hooks.h"
#include "tests/kit/log_capture.h"
#include "tests/kit/scripted_movie.h"

using kit::ChangedHook;
using kit::ChangingHook;
using kit::MovieScript;
using kit::ScriptedMovie;

namespace {

ScriptedMovie* lonely() { return new ScriptedMovie(MovieScript(), {}, false, MediaObj::CacheRefValue::None); }

class Holders : public ::testing::Test {
protected:
    ~Holders() override { EXPECT_EQ(MediaObjImpl::active.getCount(), m_before + 2); }

    MediaObj* extra(ScriptedMovie& movie) {
        movie.preserve();
        return &movie;
    }

    const int m_before = MediaObjImpl::active.getCount();
    AutoReleasePtr<ScriptedMovie> m_old{lonely()};
    AutoReleasePtr<ScriptedMovie> m_new{lonely()};
};

}  // namespace

TEST_F(Holders, ScopeHoldReleasesAtItsEndAndAfterForgetDoesNot) {
    {
        MediaObj::ScopeHold hold;
        EXPECT_TRUE(hold.null());
        EXPECT_FALSE(hold.valid());
        hold = m_old.get();
        EXPECT_TRUE(hold.valid());
        EXPECT_EQ(hold.get(), m_old.get());
        EXPECT_EQ(hold->getSerialNum(), m_old->getSerialNum());
        EXPECT_EQ(m_old->getReferenceCount(), 2);
    }
    EXPECT_EQ(m_old->getReferenceCount(), 1);
    MediaObj::ScopeHold hold;
    hold = m_old.get();
    EXPECT_EQ(hold.forget(), m_old.get());
    EXPECT_TRUE(hold.null());
    EXPECT_EQ(m_old->getReferenceCount(), 2);
    m_old->release();
}

TEST_F(Holders, ScopeHoldAssignedWhatItHoldsKeepsItAlive) {
    MediaObj::ScopeHold hold;
    ScriptedMovie* movie = lonely();
    std::atomic<int> deleted{0};
    movie->m_deleted = &deleted;
    hold = movie;
    movie->release();
    EXPECT_EQ(movie->getReferenceCount(), 1);
    hold = movie;
    EXPECT_EQ(deleted, 0);
    EXPECT_EQ(movie->getReferenceCount(), 1);
    hold = m_old.get();
    EXPECT_EQ(deleted, 1);
    hold = nullptr;
    EXPECT_EQ(m_old->getReferenceCount(), 1);
}

TEST_F(Holders, PersistTakesOverTheReferenceOfARawPointerAndGivesItBackAtItsEnd) {
    {
        MediaObj::Persist holder;
        EXPECT_EQ(holder.preserve(), nullptr);
        holder = extra(*m_old.get());
        EXPECT_EQ(m_old->getReferenceCount(), 2);
        MediaObj* seen = holder.preserve();
        EXPECT_EQ(seen, m_old.get());
        EXPECT_EQ(m_old->getReferenceCount(), 3);
        seen->release();
    }
    EXPECT_EQ(m_old->getReferenceCount(), 1);
    EXPECT_TRUE(m_old->impl().m_persists.empty());
}

TEST_F(Holders, PersistTakesOverTheReferenceOfAScopeHold) {
    MediaObj::ScopeHold hold;
    hold = m_old.get();
    MediaObj::Persist holder;
    holder = hold;
    EXPECT_TRUE(hold.null());
    EXPECT_EQ(m_old->getReferenceCount(), 2);
    EXPECT_EQ(m_old->impl().m_persists.size(), 1u);
}

TEST_F(Holders, CopyOfAPersistFollowsWithAReferenceAndHooksOfItsOwn) {
    ChangedHook changed;
    MediaObj::Persist holder(&changed);
    holder = extra(*m_old.get());
    {
        MediaObj::Persist copy(holder);
        EXPECT_EQ(m_old->getReferenceCount(), 3);
        EXPECT_EQ(m_old->impl().m_persists.size(), 2u);
        m_old->replaceWith(m_new.get());
        EXPECT_EQ(changed.count(), 2);
        EXPECT_EQ(m_new->getReferenceCount(), 3);
    }
    EXPECT_EQ(m_new->getReferenceCount(), 2);
    MediaObj::Persist empty;
    MediaObj::Persist copyOfEmpty(empty);
    EXPECT_EQ(copyOfEmpty.preserve(), nullptr);
}

TEST_F(Holders, AssigningWhatIsHeldAlreadyLeavesTheCountInAllThreeForms) {
    MediaObj::Persist holder, other;
    holder = extra(*m_old.get());
    EXPECT_EQ(m_old->getReferenceCount(), 2);

    holder = extra(*m_old.get());
    EXPECT_EQ(m_old->getReferenceCount(), 2);

    MediaObj::ScopeHold hold;
    hold = m_old.get();
    holder = hold;
    EXPECT_EQ(m_old->getReferenceCount(), 2);

    other = holder;
    EXPECT_EQ(m_old->getReferenceCount(), 3);
    holder = other;
    EXPECT_EQ(m_old->getReferenceCount(), 3);
    EXPECT_EQ(m_old->impl().m_persists.size(), 2u);

    MediaObj::Persist& itself = holder;
    holder = itself;
    EXPECT_EQ(m_old->getReferenceCount(), 3);
}

TEST_F(Holders, AssigningNullToAnEmptyHolderDoesNothing) {
    MediaObj::Persist holder;
    holder = static_cast<MediaObj*>(nullptr);
    EXPECT_EQ(holder.preserve(), nullptr);
}

TEST_F(Holders, AssignmentMovesTheHolderAndCallsNoHook) {
    ChangedHook changed;
    ChangingHook changing;
    MediaObj::Persist holder(&changed, &changing), other;
    holder = extra(*m_old.get());
    holder = extra(*m_new.get());
    EXPECT_EQ(m_old->getReferenceCount(), 1);
    EXPECT_TRUE(m_old->impl().m_persists.empty());
    EXPECT_EQ(m_new->getReferenceCount(), 2);
    other = extra(*m_old.get());
    holder = other;
    EXPECT_EQ(m_old->getReferenceCount(), 3);
    EXPECT_EQ(m_new->getReferenceCount(), 1);
    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(changing.count(), 0);
}

TEST_F(Holders, LastReferenceIsGivenBackOutsideTheHolderLocks) {
    // Deletes its object from inside an assignment; the destructor takes a holder's locks itself.
    class Nosy : public ScriptedMovie {
    public:
        explicit Nosy(MediaObj::Persist& own)
            : ScriptedMovie(MovieScript(), {}, false, MediaObj::CacheRefValue::None), m_own(own) {}
        ~Nosy() override { m_own = static_cast<MediaObj*>(nullptr); }

    private:
        MediaObj::Persist& m_own;
    };
    MediaObj::Persist inner, holder;
    inner = extra(*m_old.get());
    holder = new Nosy(inner);
    holder = static_cast<MediaObj*>(nullptr);
    EXPECT_EQ(m_old->getReferenceCount(), 1);
}

TEST_F(Holders, ReplaceWithMovesAllHoldersAndRunsTheHooksOfEachOnce) {
    ChangedHook changed[3];
    ChangingHook changing[3];
    MediaObj::Persist a(&changed[0], &changing[0]), b(&changed[1], &changing[1]), c(&changed[2], &changing[2]);
    for (MediaObj::Persist* holder : {&a, &b, &c})
        *holder = extra(*m_old.get());
    EXPECT_EQ(m_old->getReferenceCount(), 4);

    m_old->replaceWith(m_new.get());

    EXPECT_EQ(m_old->getReferenceCount(), 1);
    EXPECT_EQ(m_new->getReferenceCount(), 4);
    EXPECT_TRUE(m_old->impl().m_persists.empty());
    EXPECT_EQ(m_new->impl().m_persists.size(), 3u);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(changed[i].count(), 1);
        EXPECT_EQ(changing[i].count(), 1);
        EXPECT_EQ(changing[i].last(), m_new.get());
    }
    EXPECT_EQ(changed[0].last(), &a);
    EXPECT_EQ(changed[1].last(), &b);
    EXPECT_EQ(changed[2].last(), &c);
    AutoReleasePtr<MediaObj> seen(a.preserve());
    EXPECT_EQ(seen.get(), m_new.get());
}

TEST_F(Holders, ReplaceWithLeavesPlainReferencesWhereTheyAre) {
    m_old->preserve();
    m_old->replaceWith(m_new.get());
    EXPECT_EQ(m_old->getReferenceCount(), 2);
    EXPECT_EQ(m_new->getReferenceCount(), 1);
    m_old->release();
}

TEST_F(Holders, ReplaceWithItselfLeavesTheHoldersAlone) {
    ChangedHook changed;
    MediaObj::Persist holder(&changed);
    holder = extra(*m_old.get());
    m_old->replaceWith(m_old.get());
    EXPECT_EQ(changed.count(), 0);
    EXPECT_EQ(m_old->getReferenceCount(), 2);
}

TEST_F(Holders, ChangingHookRunsBeforeTheMoveAndChangedAfterIt) {
    struct Order : MediaObj::OnChanging {
        bool vCallCb(MediaObj&) const override {
            m_changedThen = m_changed->count();
            return true;
        }
        const ChangedHook* m_changed = nullptr;
        mutable int m_changedThen = -1;
    };
    ChangedHook changed;
    Order order;
    order.m_changed = &changed;
    MediaObj::Persist holder(&changed, &order);
    holder = extra(*m_old.get());
    m_old->replaceWith(m_new.get());
    EXPECT_EQ(order.m_changedThen, 0);
    EXPECT_EQ(changed.count(), 1);
}

TEST_F(Holders, PersistDestroyedWhileItsObjectIsReplacedIsMovedOrRemovedAndNothingBetween) {
    for (int round = 0; round < 300; ++round) {
        auto holder = std::make_unique<MediaObj::Persist>();
        *holder = extra(*m_old.get());
        std::thread mover([&] { m_old->replaceWith(m_new.get()); });
        holder.reset();
        mover.join();
        ASSERT_EQ(m_old->getReferenceCount(), 1);
        ASSERT_EQ(m_new->getReferenceCount(), 1);
        ASSERT_TRUE(m_old->impl().m_persists.empty());
        ASSERT_TRUE(m_new->impl().m_persists.empty());
    }
}

TEST_F(Holders, PreserveNeverWaitsForTheLockThatMovesHolders) {
    MediaObj::Persist holder;
    holder = extra(*m_old.get());
    ZarnexPosix::JMutex& moving = RereaderLock::getRef();
    moving.lock();
    std::thread reader([&] { AutoReleasePtr<MediaObj> seen(holder.preserve()); });
    reader.join();
    moving.unlock();
    EXPECT_EQ(m_old->getReferenceCount(), 2);
}

TEST_F(Holders, DestructionWithHoldersLeftIsTold) {
    kit::LogCapture log;
    alignas(MediaObj::Persist) static unsigned char memory[sizeof(MediaObj::Persist)];
    auto* lost = new (memory) MediaObj::Persist;
    ScriptedMovie* movie = lonely();
    *lost = movie;
    movie->getRefCount()->release();
    delete static_cast<MediaObj*>(movie);
    EXPECT_EQ(log.count("MO@*::dtor,*active,1clients,0writers,ref=0"), 1u) << log.text();
    // The holder is left as it is: its object is gone.
}
