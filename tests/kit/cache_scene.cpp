#include "tests/kit/cache_scene.h"

#include "support/clock.h"

namespace kit {

namespace {

::testing::AssertionResult isFailure(const OpResult& result, OpResult::Type type, int code) {
    // Looked at, so that it isn't reported when it goes.
    OpResult seen = result;
    seen.discard();
    if (result.getType() == type && result.getCode() == code && result.getSubsystem() == mediaCoreOpSubsystem.getId()) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "type " << static_cast<unsigned>(result.getType()) << ", code "
                                         << result.getCode() << ", subsystem " << result.getSubsystem();
}

}  // namespace

::testing::AssertionResult isWarning(const OpResult& result, int code) {
    return isFailure(result, OpResult::Type::Warning, code);
}

::testing::AssertionResult isError(const OpResult& result, int code) {
    return isFailure(result, OpResult::Type::Error, code);
}

CacheScene::CacheScene() : m_activeBefore(MediaObjImpl::active.getCount()) {
    m_cache.stopThread();
    m_cache.setZombieTime(1000000);
}

CacheScene::~CacheScene() = default;

void CacheScene::TearDown() {
    m_result.discard();
    mediaObjDbg.set(0u);
    expireAll();
    EXPECT_EQ(m_cache.mapSize(), 0u);
    EXPECT_EQ(m_cache.zombieCount(), 0u);
    EXPECT_EQ(MediaObjImpl::active.getCount(), m_activeBefore);
    m_cache.clearQueue();
    m_cache.setStopping(false);
    Scripts::clear();
}

std::string CacheScene::scripted(const std::string& name, const MovieScript& script, const std::string& bytes) {
    std::string path = m_tree.write(name, bytes);
    Scripts::set(path, script);
    return path;
}

ScriptedMovie* CacheScene::open(const std::string& path, bool force, MediaObj::ReadMode mode) {
    MediaObj* object = MediaObj::openReader(path.c_str(), mode, m_result, MediaFileType::Unknown, force);
    EXPECT_NE(object, nullptr) << path << ": " << m_result.describe().get();
    return static_cast<ScriptedMovie*>(object);
}

ScriptedMovie* CacheScene::openWriter(const std::string& path, bool morph) {
    MediaObj* object = MediaObj::openWriter(path.c_str(), morph, m_result, MediaContainment::Embedded,
                                            MediaFileType::Unknown, nullptr, BasicIOTypes::SizeAdvice::None);
    EXPECT_NE(object, nullptr) << path << ": " << m_result.describe().get();
    return static_cast<ScriptedMovie*>(object);
}

ScriptedMovie* CacheScene::parsed(const std::string& path, const MovieScript& script) {
    return new ScriptedMovie(script, path);
}

void CacheScene::expireAll() {
    const long long zombieTime = m_cache.zombieTime();
    m_cache.setZombieTime(0);
    for (int i = 0; i < 100 && m_cache.mapSize() + m_cache.zombieCount() != 0; ++i)
        m_cache->expireZombies(farFuture(), nullptr);
    m_cache.setZombieTime(zombieTime);
}

long long CacheScene::farFuture() { return Clock::nowRelative() + 1000000000000ll; }

}  // namespace kit
