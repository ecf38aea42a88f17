#pragma once

#include <cstddef>

// Owning pointers of one field each. None of them is safe to share between threads.

// Tag: the pointer given carries a reference already.
struct PreReferenced {};

// How AutoPtr frees what it owns.
template <class T>
struct AutoPtrFree {
    static void free(T* object) { delete object; }
};

// All text that is handed around is allocated as an array.
template <>
struct AutoPtrFree<char> {
    static void free(char* text) { delete[] text; }
};

// Sole owner of an object, or of a text when T is char.
// Copying and assigning transfer: the source, though const, is empty afterwards. Functions that answer an owned
// object by value rely on this.
template <class T>
class AutoPtr {
public:
    AutoPtr(std::nullptr_t = nullptr) {}
    explicit AutoPtr(T* object) : m_ptr(object) {}
    AutoPtr(const AutoPtr& other) : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    ~AutoPtr() { AutoPtrFree<T>::free(m_ptr); }

    // Takes: object.
    AutoPtr& operator=(T* object) {
        if (m_ptr != object) reset(object);
        return *this;
    }

    AutoPtr& operator=(const AutoPtr& other) {
        if (this == &other) return *this;
        T* const object = other.m_ptr;
        // Emptied first and also when both hold the same object, so that it isn't freed twice.
        other.m_ptr = nullptr;
        if (m_ptr != object) reset(object);
        return *this;
    }

    // Gives: borrowed until this pointer changes.
    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }

private:
    void reset(T* object) {
        T* const old = m_ptr;
        m_ptr = object;
        AutoPtrFree<T>::free(old);
    }

    mutable T* m_ptr = nullptr;
};

// Sole owner of an array. Copying and assigning transfer, as with AutoPtr.
template <class T>
class AutoArrayPtr {
public:
    AutoArrayPtr(std::nullptr_t = nullptr) {}
    explicit AutoArrayPtr(T* array) : m_ptr(array) {}
    AutoArrayPtr(const AutoArrayPtr& other) : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    ~AutoArrayPtr() { delete[] m_ptr; }

    // Takes: array.
    AutoArrayPtr& operator=(T* array) {
        if (m_ptr != array) reset(array);
        return *this;
    }

    AutoArrayPtr& operator=(const AutoArrayPtr& other) {
        if (this == &other) return *this;
        T* const array = other.m_ptr;
        other.m_ptr = nullptr;
        if (m_ptr != array) reset(array);
        return *this;
    }

    // Gives: borrowed until this pointer changes.
    T* get() const { return m_ptr; }
    T& operator[](unsigned int index) const { return m_ptr[index]; }

private:
    void reset(T* array) {
        T* const old = m_ptr;
        m_ptr = array;
        delete[] old;
    }

    mutable T* m_ptr = nullptr;
};

// Holds one of the references of an object that has preserve() and release().
template <class T>
class AutoRefPtr {
public:
    AutoRefPtr() = default;
    // Takes a reference of its own.
    AutoRefPtr(T* object) : m_ptr(object) {
        if (m_ptr) m_ptr->preserve();
    }
    // Takes: the reference that the caller has.
    AutoRefPtr(T* object, PreReferenced) : m_ptr(object) {}
    AutoRefPtr(const AutoRefPtr& other) : AutoRefPtr(other.m_ptr) {}
    ~AutoRefPtr() {
        if (m_ptr) m_ptr->release();
    }

    AutoRefPtr& operator=(const AutoRefPtr& other) {
        copy(other.m_ptr);
        return *this;
    }

    // Gives: borrowed until this pointer changes.
    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }
    bool operator==(T* object) const { return m_ptr == object; }
    explicit operator bool() const { return m_ptr != nullptr; }

private:
    // Preserve comes first: the new object may live only by a reference that the old one holds.
    void copy(T* object) {
        if (m_ptr == object) return;
        if (object) object->preserve();
        if (m_ptr) m_ptr->release();
        m_ptr = object;
    }

    T* m_ptr = nullptr;
};

// Takes over a reference that the caller has already, such as that of an opened object, and gives it back at its end.
template <class T>
class AutoReleasePtr {
public:
    explicit AutoReleasePtr(T* object = nullptr) : m_ptr(object) {}
    AutoReleasePtr(const AutoReleasePtr&) = delete;
    ~AutoReleasePtr() {
        if (m_ptr) m_ptr->release();
    }

    AutoReleasePtr& operator=(const AutoReleasePtr&) = delete;
    // Takes: the caller's reference. The one held so far is given back, even if it is on the same object.
    AutoReleasePtr& operator=(T* object) {
        if (m_ptr) m_ptr->release();
        m_ptr = object;
        return *this;
    }

    // Gives: borrowed until this pointer changes.
    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

private:
    T* m_ptr;
};
