#pragma once

#include <cstddef>
#include <functional>

// Identifies a file in the file system whatever its name; 0 is none. Passed and stored by value.
class OsPathId {
public:
    constexpr OsPathId() = default;
    constexpr OsPathId(unsigned long long id) : m_id(id) {}

    constexpr unsigned long long getId() const { return m_id; }

    friend constexpr bool operator==(OsPathId a, OsPathId b) { return a.m_id == b.m_id; }
    friend constexpr bool operator!=(OsPathId a, OsPathId b) { return a.m_id != b.m_id; }
    friend constexpr bool operator<(OsPathId a, OsPathId b) { return a.m_id < b.m_id; }
    constexpr bool operator==(unsigned long long id) const { return m_id == id; }
    constexpr bool operator!=(unsigned long long id) const { return m_id != id; }

private:
    unsigned long long m_id = 0;
};

template <>
struct std::hash<OsPathId> {
    std::size_t operator()(OsPathId id) const noexcept { return std::hash<unsigned long long>{}(id.getId()); }
};
