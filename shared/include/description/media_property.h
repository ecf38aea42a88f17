#pragma once

#include <cstdint>
#include <vector>

#include "support/auto_ptr.h"
#include "support/op_result.h"
#include "support/visibility.h"

// The names and kinds of open-ended values, brought into the scope of the property classes.
class MO_PUBLIC MediaPropertyEnum {
public:
    // The numeric value is what a property stores.
    enum class Name : std::uint32_t {
        Unknown = 0,
        VbiMask = 1,
        FirstFrame = 2,
        NBlack = 3,
        NPrecharge = 4,
        PPictCount = 5,
        BPictCount = 6,
        BigEndian = 7,
        CodePage = 8,
        ClipProps = 9,
        AfdValue = 10,
        UmidValue = 11,
        LevelAndProfile = 12,
        DvcPro = 13,
        AvcKind = 14,  // 16-bit kind of an AVC clip. It has no row in the name table and prints as "?"
    };

    // The kind of value that a property holds. Word1 to Word4 all hold an unsigned integer.
    enum class Type : std::uint32_t {
        None = 0,
        String = 1,
        Binary = 2,
        Word1 = 3,
        Word2 = 4,
        Word3 = 5,
        Word4 = 6,
        Signed64 = 7,
        Unsigned64 = 8,
    };

    struct VbiMask {};    // tag: unsigned mask of the lines of a VBI track
    struct ClipProps {};  // tag: text that holds the clip properties

    static const char* lookup(Name name);

    // The name of a text, Unknown for a text without a row.
    static Name lookup(const char* text);
};

// One named value: an integer, a string or a block of bytes, owned or borrowed.
//
// **Owns** what was set with `copy` true; a borrowed text or block has to outlive the property and every copy of it.
// Plain reads check no type.
class MO_PUBLIC MediaProperty : public MediaPropertyEnum {
public:
    MediaProperty();
    MediaProperty(Name name, unsigned int value);
    // Borrows the text.
    MediaProperty(Name name, const char* text);
    MediaProperty(const MediaProperty& other);
    virtual ~MediaProperty();

    // An owning source is copied with its value, a borrowing one is borrowed from.
    MediaProperty& operator=(const MediaProperty& other);

    // Names a fresh or emptied property; frees nothing.
    void init(Name name);
    void init(Name name, Type type, unsigned long long value);

    // Frees a held value, empties the value and stores the type. The owned bit stays.
    void setType(Type type);

    // Stores an integer. A value that was held before is not freed: meant for properties that hold none.
    void set(unsigned int value);

    // Stores a text or a block, copied or borrowed. Requires: a property that has owned a value is not set to borrow
    // one, since the owned bit stays. Fails: without memory for the copy the value is null and the size 0.
    void set(const char* text, bool copy);
    void set(const void* block, unsigned int size, bool copy);

    Type getType() const { return m_type; }
    Name getName() const { return m_name; }
    unsigned int uintValue() const { return static_cast<unsigned int>(m_value); }
    std::uint16_t uint16Value() const { return static_cast<std::uint16_t>(m_value); }
    const char* stringValue() const { return reinterpret_cast<const char*>(m_value); }
    const void* memValue() const { return reinterpret_cast<const void*>(m_value); }
    unsigned int nMemBytes() const { return m_size; }
    operator unsigned int() const { return uintValue(); }
    operator const char*() const { return stringValue(); }

    bool operator==(const MediaProperty& other) const;

    // "name=value". A 64-bit value shows its low half only, which is meant. Gives: array text, owned by the caller.
    AutoPtr<char> toString() const;

protected:
    // Becomes a borrowing view of another property, whatever that one owns.
    void borrow(const MediaProperty& other);

private:
    bool holdsHeapBlock() const;
    void store(const void* bytes, unsigned int size, bool copy);

    Type m_type;
    Name m_name;
    std::uint64_t m_value;      // the integer, or the address of the text or block
    std::uint32_t m_owned : 1;  // the value is a heap block that this property frees
    std::uint32_t m_size : 31;  // bytes of the text with its terminator, or of the block
};

// A property whose name and value type are fixed at compile time.
template <typename V, typename A, MediaPropertyEnum::Name Property>
class TMediaProperty : public MediaProperty {
public:
    using Value = V;
    static constexpr Name s_propertyName = Property;

    TMediaProperty() { init(Property); }
    explicit TMediaProperty(A value) : MediaProperty(Property, value) {}

    // A borrowing view of a property that was found in a bag.
    static TMediaProperty viewOf(const MediaProperty& found) {
        TMediaProperty view;
        view.borrow(found);
        return view;
    }

    V value() const { return static_cast<V>(static_cast<const MediaProperty&>(*this)); }
};

using VbiMaskProperty = TMediaProperty<unsigned int, unsigned int, MediaPropertyEnum::Name::VbiMask>;
using ClipPropsProperty = TMediaProperty<const char*, const char*, MediaPropertyEnum::Name::ClipProps>;

// A bag of properties, at most one of each name.
//
// **Locks:** none of its own; the object that owns a bag locks it.
class MO_PUBLIC MediaPropertyList : public MediaPropertyEnum {
public:
    virtual ~MediaPropertyList() = default;

    virtual unsigned int getPropertyCount() const = 0;

    // The property at this place, or null at and past the end. Gives: borrowed until the bag changes.
    virtual const MediaProperty* get(unsigned int index) const = 0;

    // The first property of that name, or null. Gives: borrowed until the bag changes.
    virtual const MediaProperty* get(Name name) const = 0;

    virtual OpResult set(const MediaProperty& property) = 0;
    virtual void removeAll() = 0;

    // The property of that name in its own type, or an empty one. Gives: a view that borrows a text or block from the
    // bag until the bag changes.
    template <typename T>
    T get(T*, unsigned int name) const {
        const MediaProperty* found = get(static_cast<Name>(name));
        return T::viewOf(found ? *found : m_empty);
    }

    // The VBI mask; one that is missing reads as 0.
    VbiMaskProperty get(VbiMask) const { return get(static_cast<VbiMaskProperty*>(nullptr), 1); }

    // The clip properties; ones that are missing read as a null text.
    ClipPropsProperty get(ClipProps) const { return get(static_cast<ClipPropsProperty*>(nullptr), 9); }

protected:
    MediaProperty m_empty;  // what a typed read answers when nothing was found
};

// A bag in a vector, in order of insertion, searched linearly: it holds a handful of entries.
class MO_PUBLIC MediaPropertyVector : public MediaPropertyList {
public:
    using MediaPropertyList::get;

    unsigned int getPropertyCount() const override;
    const MediaProperty* get(unsigned int index) const override;
    const MediaProperty* get(Name name) const override;
    MediaProperty* get(unsigned int index);
    MediaProperty* get(Name name);
    void removeAll() override;

protected:
    std::vector<MediaProperty> m_properties;
};

// The bag that clip parameters, tracks and movies keep.
class MO_PUBLIC MediaParams : public MediaPropertyVector {
public:
    using MediaPropertyVector::get;

    // Replaces the first property of that name, or appends a copy. A borrowed text stays borrowed. Always ok.
    OpResult set(const MediaProperty& property) override;
};

// The bag that is always empty, for objects that have no properties.
class MO_PUBLIC EmptyMediaProperties : public MediaPropertyList {
public:
    using MediaPropertyList::get;

    unsigned int getPropertyCount() const override;
    const MediaProperty* get(unsigned int index) const override;
    const MediaProperty* get(Name name) const override;
    // Fails: Warning 1, always.
    OpResult set(const MediaProperty& property) override;
    void removeAll() override;
};
