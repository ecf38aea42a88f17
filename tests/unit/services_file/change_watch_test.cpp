#include "services/file/change_watch.h"

#include <algorithm>
#include <fstream>
#include <memory>

#include "support/clock.h"
#include "tests/unit/services_file/file_kit.h"

namespace {

using namespace FileKit;

// Writes down what it is told.
class Listener {
public:
    Listener() : m_anchor(*this, &Listener::changed) {}

    bool changed(const BasicIOTypes::Change& change) {
        const std::lock_guard lock(m_mutex);
        m_ids.push_back(change.m_id);
        m_paths.emplace_back(change.m_path);
        m_reasons.push_back(change.m_reason);
        if (m_onChange) m_onChange();
        ++m_count;
        return true;
    }
    const BasicIOTypes::ChangeHook* hook() const { return &m_anchor; }
    OsPathId lastId() const {
        const std::lock_guard lock(m_mutex);
        return m_ids.back();
    }
    std::string lastPath() const {
        const std::lock_guard lock(m_mutex);
        return m_paths.back();
    }
    std::uint32_t lastReason() const {
        const std::lock_guard lock(m_mutex);
        return m_reasons.back();
    }

    void onChange(std::function<void()> action) {
        const std::lock_guard lock(m_mutex);
        m_onChange = std::move(action);
    }

    std::atomic<int> m_count{0};

private:
    std::function<void()> m_onChange;
    mutable std::mutex m_mutex;
    std::vector<OsPathId> m_ids;
    std::vector<std::string> m_paths;
    std::vector<std::uint32_t> m_reasons;
    BridgeAnchor<Listener, const BasicIOTypes::Change&, bool> m_anchor;
};

// A watched file, held as a movie holds it.
struct Watched {
    Watched(Listener& listener, const std::string& path)
        : m_listener(listener), m_fp(reader(path)), m_id(m_fp->getPathId()) {
        watch(m_fp->getVersion());
    }
    ~Watched() {
        FsFileIO::removeCb(m_listener.hook(), m_id);
        FsFileIO::finishCb(m_listener.hook());
    }
    void watch(unsigned long long version) {
        FsFileIO::addCb(m_listener.hook(), BasicIOTypes::PathWatch(OsPathId(77), m_id), version);
    }

    Listener& m_listener;
    Fp m_fp;
    OsPathId m_id;
};

// Each test runs with the kernel's notices and by looking.
class ChangeOf : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        ChangeWatch::get().stop();
        ::setenv("MEDIACORE_WATCH", GetParam(), 1);
        m_known = FileTable::size();
    }
    void TearDown() override {
        EXPECT_EQ(0u, ChangeWatch::get().size());
        ChangeWatch::get().stop();
        ::unsetenv("MEDIACORE_WATCH");
        EXPECT_TRUE(waitFor([this] { return FileTable::size() == m_known; }));
    }
    // Waits until the listener has been told as often.
    bool told(int count) {
        return waitFor([&] { return m_listener.m_count >= count; });
    }

    Tree m_tree;
    Listener m_listener;
    unsigned m_known = 0;
};

INSTANTIATE_TEST_SUITE_P(Watch, ChangeOf, testing::Values("inotify", "poll"),
                         [](const auto& form) { return std::string(form.param); });

TEST_P(ChangeOf, ContentIsTold) {
    const std::string a = m_tree.write("a", "1");
    const Watched watched(m_listener, a);
    for (int i = 1; i <= 2; ++i) {
        m_tree.write("a", std::string(static_cast<unsigned>(i) * 10, 'x'));
        ASSERT_TRUE(waitFor([&] { return m_listener.m_count >= i; }));
    }
    EXPECT_TRUE(m_listener.lastId() == 77ull);
    EXPECT_EQ(a, m_listener.lastPath());
}

TEST_P(ChangeOf, BeforeTheWatchIsToldAtOnce) {
    const std::string a = m_tree.write("a", "1");
    const Fp fp = reader(a);
    const unsigned long long before = fp->getVersion();
    m_tree.write("a", "22");
    const Watched watched(m_listener, a);
    FsFileIO::addCb(m_listener.hook(), BasicIOTypes::PathWatch(OsPathId(5), watched.m_id), before);
    ASSERT_TRUE(told(1));
    EXPECT_TRUE(m_listener.lastId() == 5ull);
}

// A rename outside is seen through only where the system lets a file be found by its handle.
TEST_P(ChangeOf, NothingIsNotTold) {
    const std::string a = m_tree.write("a", "1");
    const Watched watched(m_listener, a);
    Listener other;
    const Watched second(other, m_tree.write("b", "1"));
    // One write and no truncation: a poll that looks in between sees nothing half done.
    std::ofstream(a, std::ios::app) << "2";
    ASSERT_TRUE(waitFor([&] { return m_listener.m_count > 0 && versionOf(a) == watched.m_fp->getVersion(); }));
    const int before = m_listener.m_count;
    ::chmod(a.c_str(), 0600);
    if (::geteuid() == 0) move(a, m_tree / "c");
    m_tree.write("b", "22");
    ASSERT_TRUE(waitFor([&] { return other.m_count >= 1; }));
    EXPECT_EQ(before, m_listener.m_count);
}

TEST_P(ChangeOf, AReplacementByRenameIsTold) {
    const std::string a = m_tree.write("a", "1");
    const Watched watched(m_listener, a);
    move(m_tree.write("new", "22"), a);
    ASSERT_TRUE(told(1));
    EXPECT_EQ(watched.m_id, idOf(a));
    // The watch is on the new file now.
    m_tree.write("a", "333");
    ASSERT_TRUE(told(2));
    move(m_tree.write("new", "4444"), a);
    ASSERT_TRUE(told(3));
}

TEST_P(ChangeOf, ARemovalAndAReturnAreTold) {
    const std::string a = m_tree.write("a", "1");
    const Watched watched(m_listener, a);
    ::unlink(a.c_str());
    ASSERT_TRUE(told(1));
    EXPECT_EQ(static_cast<std::uint32_t>(ChangeWatch::Removed), m_listener.lastReason());
    EXPECT_EQ(a, m_listener.lastPath());
    m_tree.write("a", "22");
    ASSERT_TRUE(told(2));
    EXPECT_EQ(static_cast<std::uint32_t>(ChangeWatch::PutBack), m_listener.lastReason());
    const int before = m_listener.m_count;
    m_tree.write("a", "333");
    ASSERT_TRUE(told(before + 1));
}

TEST_P(ChangeOf, AFileWhoseFolderGoesAndComesBackIsTold) {
    ASSERT_EQ(0, ::mkdir((m_tree / "d").c_str(), 0777));
    const std::string a = m_tree.write("d/a", "1");
    const Watched watched(m_listener, a);
    ::unlink(a.c_str());
    ::rmdir((m_tree / "d").c_str());
    ASSERT_TRUE(told(1));
    ASSERT_EQ(0, ::mkdir((m_tree / "d").c_str(), 0777));
    m_tree.write("d/a", "22");
    ASSERT_TRUE(told(2));
}

TEST_P(ChangeOf, ABurstEndsInItsLastState) {
    const std::string a = m_tree.write("a", "");
    std::atomic<unsigned long long> seen{0};
    m_listener.onChange([&] { seen = versionOf(a); });
    const Watched watched(m_listener, a);
    for (int i = 1; i <= 500; ++i)
        m_tree.write("a", std::string(static_cast<unsigned>(i), 'x'));
    const unsigned long long last = versionOf(a);
    EXPECT_TRUE(waitFor([&] { return seen == last; }));
    EXPECT_LT(m_listener.m_count, 500);
}

TEST_P(ChangeOf, OneFileIsToldToAllWhoAsked) {
    const std::string a = m_tree.write("a", "1");
    Listener other;
    const Watched one(m_listener, a);
    {
        const Watched two(other, a);
        EXPECT_EQ(1u, ChangeWatch::get().size());
        m_tree.write("a", "22");
        EXPECT_TRUE(waitFor([&] { return m_listener.m_count >= 1 && other.m_count >= 1; }));
    }
    const int count = other.m_count;
    const int mine = m_listener.m_count;
    m_tree.write("a", "333");
    EXPECT_TRUE(told(mine + 1));
    EXPECT_EQ(count, other.m_count);
}

TEST_P(ChangeOf, AFileIsNoLongerToldOnceItIsTakenBack) {
    const std::string a = m_tree.write("a", "1");
    Listener other;
    const Watched marker(other, m_tree.write("b", "1"));
    { const Watched watched(m_listener, a); }
    m_tree.write("a", "22");
    m_tree.write("b", "22");
    EXPECT_TRUE(waitFor([&] { return other.m_count >= 1; }));
    EXPECT_EQ(0, m_listener.m_count);
}

TEST_P(ChangeOf, AHookMayTakeItselfBack) {
    const std::string a = m_tree.write("a", "1");
    auto watched = std::make_unique<Watched>(m_listener, a);
    m_listener.onChange([&] {
        FsFileIO::removeCb(m_listener.hook(), watched->m_id);
        FsFileIO::finishCb(m_listener.hook());
    });
    m_tree.write("a", "22");
    EXPECT_TRUE(told(1));
    EXPECT_TRUE(waitFor([] { return ChangeWatch::get().size() == 0; }));
}

TEST_P(ChangeOf, AHookIsCalledWithoutAnyLockOfTheWatch) {
    const std::string a = m_tree.write("a", "1");
    const std::string b = m_tree.write("b", "1");
    Listener other;
    const Watched watched(m_listener, a);
    std::unique_ptr<Watched> inside;
    std::atomic<bool> done{false};
    m_listener.onChange([&] {
        std::thread([&] { inside = std::make_unique<Watched>(other, b); }).join();
        done = true;
    });
    m_tree.write("a", "22");
    EXPECT_TRUE(waitFor([&] { return done.load(); }));
}

TEST_P(ChangeOf, FinishWaitsForTheCallThatRuns) {
    const std::string a = m_tree.write("a", "1");
    const Watched watched(m_listener, a);
    std::atomic<bool> inside{false};
    std::atomic<bool> goOn{false};
    std::atomic<bool> left{false};
    m_listener.onChange([&] {
        inside = true;
        waitFor([&] { return goOn.load(); });
        left = true;
    });
    m_tree.write("a", "22");
    ASSERT_TRUE(waitFor([&] { return inside.load(); }));
    FsFileIO::removeCb(m_listener.hook(), watched.m_id);
    EXPECT_FALSE(left) << "taking it back waits for nobody";
    goOn = true;
    FsFileIO::finishCb(m_listener.hook());
    EXPECT_TRUE(left);
}

TEST_P(ChangeOf, ManyFilesInOneFolderAreAllTold) {
    constexpr int files = 1000;
    std::vector<std::unique_ptr<Listener>> listeners;
    std::vector<std::unique_ptr<Watched>> watched;
    for (int i = 0; i < files; ++i) {
        listeners.push_back(std::make_unique<Listener>());
        watched.push_back(std::make_unique<Watched>(*listeners.back(), m_tree.write("f" + std::to_string(i), "1")));
    }
    for (int i = 0; i < files; ++i)
        m_tree.write("f" + std::to_string(i), "22");
    EXPECT_TRUE(waitFor([&] {
        return std::all_of(listeners.begin(), listeners.end(),
                           [](const auto& listener) { return listener->m_count >= 1; });
    }));
}

TEST_P(ChangeOf, AFileIsToldAgainAfterTheThreadWasStopped) {
    const std::string a = m_tree.write("a", "1");
    const Watched watched(m_listener, a);
    const unsigned long long version = watched.m_fp->getVersion();
    EXPECT_TRUE(ChangeWatch::get().stop());
    m_tree.write("a", "22");
    Listener other;
    const Watched starter(other, m_tree.write("b", "1"));
    EXPECT_TRUE(told(1)) << version;
    m_tree.write("a", "333");
    EXPECT_TRUE(told(2));
}

TEST_P(ChangeOf, ThreadsMayAddAndRemoveAsTheyLike) {
    std::vector<std::string> paths;
    for (int i = 0; i < 8; ++i)
        paths.push_back(m_tree.write("f" + std::to_string(i), "1"));
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            Listener listener;
            for (unsigned i = 0; !stop; ++i)
                const Watched watched(listener, paths[(i + static_cast<unsigned>(t)) % paths.size()]);
        });
    }
    for (int i = 0; i < 300; ++i)
        m_tree.write("f" + std::to_string(i % 8), std::string(static_cast<unsigned>(i), 'x'));
    stop = true;
    for (std::thread& thread : threads)
        thread.join();
}

class WatchLimits : public testing::Test {
protected:
    void SetUp() override { ChangeWatch::get().stop(); }
    void TearDown() override { ChangeWatch::get().stop(); }

    Tree m_tree;
    Listener m_listener;
};

TEST_F(WatchLimits, WithoutWatchesFilesAreLookedAt) {
    const Fault fault(FileCall::Watch, ENOSPC);
    Log log;
    const std::string a = m_tree.write("a", "1");
    const Watched watched(m_listener, a);
    ASSERT_TRUE(waitFor([] { return ChangeWatch::get().getPolled() == 1; }));
    EXPECT_EQ(1u, log.count("no watches left"));
    m_tree.write("a", "22");
    EXPECT_TRUE(waitFor([&] { return m_listener.m_count >= 1; }));
}

TEST_F(WatchLimits, WatchesAreTakenUpWhenThereAreSomeAgain) {
    const std::string a = m_tree.write("a", "1");
    ::setenv("MEDIACORE_WATCH", "inotify", 1);
    {
        auto fault = std::make_unique<Fault>(FileCall::Watch, ENOSPC);
        const Watched watched(m_listener, a);
        ASSERT_TRUE(waitFor([] { return ChangeWatch::get().getPolled() == 1; }));
        fault.reset();
        EXPECT_TRUE(waitFor([] { return ChangeWatch::get().getPolled() == 0; }));
        m_tree.write("a", "22");
        EXPECT_TRUE(waitFor([&] { return m_listener.m_count >= 1; }));
    }
    ::unsetenv("MEDIACORE_WATCH");
}

TEST_F(WatchLimits, AnIdOfNoFileIsRefusedWithAWarning) {
    Log log;
    FsFileIO::addCb(m_listener.hook(), BasicIOTypes::PathWatch(OsPathId(1), OsPathId(1)), 1);
    EXPECT_EQ(1u, log.count("no file of id 0x1 is known"));
    EXPECT_EQ(0u, ChangeWatch::get().size());
    FsFileIO::removeCb(m_listener.hook(), OsPathId(1));
    FsFileIO::addCb(nullptr, BasicIOTypes::PathWatch(OsPathId(1), OsPathId(1)), 1);
    FsFileIO::removeCb(nullptr, OsPathId(1));
}

TEST_F(WatchLimits, NothingIsLeftWhenTheLastWatchHasGone) {
    const unsigned known = FileTable::size();
    const unsigned descriptors = openDescriptors();
    {
        std::vector<std::unique_ptr<Watched>> watched;
        for (int i = 0; i < 100; ++i)
            watched.push_back(std::make_unique<Watched>(m_listener, m_tree.write("f" + std::to_string(i), "1")));
        m_tree.write("f0", "22");
        ASSERT_TRUE(waitFor([&] { return m_listener.m_count >= 1; }));
    }
    EXPECT_TRUE(waitFor([&] { return FileTable::size() == known && openDescriptors() == descriptors; }));
}

}  // namespace
