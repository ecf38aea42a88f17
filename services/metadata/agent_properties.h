#pragma once

#include <cstdint>
#include <vector>

// The number of a client's property. The top four bits give the type of its value.
enum class MediaAgentPropId : std::uint32_t {
    None = 0,
    FrameN = 0x10000002  // other than 0: the client wants a picture for the frame behind a clip's last
};

// The untyped part of a property: a number.
class BaseProperty {
public:
    // The types of values, as they stand in the top four bits of an id.
    enum class Type : std::uint32_t { None = 0, Unsigned = 1 };

    constexpr explicit BaseProperty(unsigned value) : m_value(value) {}
    constexpr unsigned uintValue() const { return m_value; }

private:
    unsigned m_value;
};

// A property with its id.
template <class Id>
class GenericProperty : public BaseProperty {
public:
    constexpr GenericProperty() : BaseProperty(0), m_id{} {}
    constexpr GenericProperty(Id id, unsigned value) : BaseProperty(value), m_id(id) {}

    // The type's number that the id carries; those without a name here are a client's own.
    static constexpr unsigned typeOf(Id id) { return (static_cast<std::uint32_t>(id) >> 28) & 15u; }

    constexpr Id getId() const { return m_id; }

private:
    Id m_id;
};

// What can be asked for properties by their ids.
template <class Id>
class IGenericProperties {
public:
    virtual ~IGenericProperties() = default;

    // Gives: the property, borrowed for as long as the set is unchanged, or null. Whoever asks checks that the id is
    // the one that he asked for: a set may answer with a default of another id.
    virtual const GenericProperty<Id>* get(Id id) const = 0;
};

// A set of properties in memory.
//
// **Threads:** filled by one thread before others see it.
template <class Id>
class GenericPropertySet : public IGenericProperties<Id> {
public:
    const GenericProperty<Id>* get(Id id) const override {
        for (const GenericProperty<Id>& property : m_properties) {
            if (property.getId() == id) return &property;
        }
        return nullptr;
    }

    // Adds the property, or puts it in the place of the one with the same id.
    void set(const GenericProperty<Id>& property) {
        for (GenericProperty<Id>& held : m_properties) {
            if (held.getId() == property.getId()) {
                held = property;
                return;
            }
        }
        m_properties.push_back(property);
    }

private:
    std::vector<GenericProperty<Id>> m_properties;
};
