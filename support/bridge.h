#pragma once

#include <atomic>
#include <cstdint>

#include "support/visibility.h"

// A stamp that tells a living bridge from a destroyed one. It is a check against misuse, not a synchronisation:
// an anchor must outlive its registration with the other side.
class MO_PUBLIC BridgeBase {
public:
    BridgeBase(const BridgeBase&) = delete;
    BridgeBase& operator=(const BridgeBase&) = delete;

    bool isValid() const { return m_magic.load(std::memory_order_relaxed) == s_validMagic; }
    // Reports a call through a destroyed bridge as an error with the caller's stack.
    void noteIsInvalid() const;

protected:
    BridgeBase() : m_magic(s_validMagic) {}
    // Atomic, because a plain store to a dying object may be left out by the compiler.
    ~BridgeBase() { m_magic.store(0, std::memory_order_relaxed); }

private:
    static constexpr std::uint32_t s_validMagic = 0x707537F;

    std::atomic<std::uint32_t> m_magic;
};

// A callback with one argument, as its caller sees it.
// **Threads:** any; what is called takes care of its own locking.
template <class Arg, class Ret>
class MO_PUBLIC BridgeHook : public BridgeBase {
public:
    virtual ~BridgeHook() = default;

    // Calls what the bridge is bound to. A destroyed bridge is reported and answers the default value.
    Ret callCb(Arg arg) const {
        if (isValid()) return vCallCb(static_cast<Arg&&>(arg));
        noteIsInvalid();
        return Ret();
    }

protected:
    virtual Ret vCallCb(Arg arg) const = 0;
};

// A callback without an argument, as its caller sees it.
// **Threads:** any; what is called takes care of its own locking.
template <class Ret>
class MO_PUBLIC BridgeHookVoid : public BridgeBase {
public:
    virtual ~BridgeHookVoid() = default;

    // Calls what the bridge is bound to. A destroyed bridge is reported and answers the default value.
    // Not checked for the type of a living object: a dead one is what the stamp is there to find.
    __attribute__((no_sanitize("vptr"))) Ret callCb() const { return get(); }
    Ret get() const {
        if (isValid()) return validGet();
        noteIsInvalid();
        return Ret();
    }

protected:
    virtual Ret validGet() const = 0;
};

// Binds an object and one of its member functions; a virtual one runs as overridden.
template <class T, class Arg, class Ret>
class BridgeAnchor : public BridgeHook<Arg, Ret> {
public:
    using Method = Ret (T::*)(Arg);

    BridgeAnchor(T& object, Method method) : m_object(&object), m_method(method) {}

protected:
    Ret vCallCb(Arg arg) const override { return (m_object->*m_method)(static_cast<Arg&&>(arg)); }

private:
    T* const m_object;  // borrowed
    const Method m_method;
};

// The same for a member function without an argument.
template <class T, class Ret>
class BridgeAnchorVoid : public BridgeHookVoid<Ret> {
public:
    using Method = Ret (T::*)();

    BridgeAnchorVoid(T& object, Method method) : m_object(&object), m_method(method) {}

protected:
    Ret validGet() const override { return (m_object->*m_method)(); }

private:
    T* const m_object;  // borrowed
    const Method m_method;
};
