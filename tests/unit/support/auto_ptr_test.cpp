#include "support/auto_ptr.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "support/ref_count.h"

namespace {

struct Base {
    virtual ~Base() = default;
    int m_value = 7;
};

struct Watched : Base {
    explicit Watched(int* destroyed) : m_destroyed(destroyed) {}
    ~Watched() override { ++*m_destroyed; }
    int* m_destroyed;
};

// Writes down what is asked of it.
struct Referenced {
    int preserve() {
        m_calls.push_back('p');
        return ++m_count;
    }
    int release() {
        m_calls.push_back('r');
        return --m_count;
    }
    int m_count = 1;
    std::vector<char> m_calls;
};

AutoPtr<Base> makeWatched(int* destroyed) {
    AutoPtr<Base> made(new Watched(destroyed));
    return made;
}

}  // namespace

TEST(AutoPtr, IsOnePointerWide) {
    static_assert(sizeof(AutoPtr<int>) == sizeof(void*));
    static_assert(sizeof(AutoArrayPtr<int>) == sizeof(void*));
    static_assert(sizeof(AutoRefPtr<Referenced>) == sizeof(void*));
    static_assert(sizeof(AutoReleasePtr<Referenced>) == sizeof(void*));
}

TEST(AutoPtr, DeletesThroughTheVirtualDestructor) {
    int destroyed = 0;
    {
        const AutoPtr<Base> object = makeWatched(&destroyed);
        EXPECT_EQ(object->m_value, 7);
        EXPECT_EQ((*object).m_value, 7);
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(AutoPtr, CopyTakesThePointerOfAConstSource) {
    int destroyed = 0;
    const AutoPtr<Base> source(new Watched(&destroyed));
    Base* const object = source.get();
    {
        const AutoPtr<Base> copy(source);
        EXPECT_EQ(copy.get(), object);
        EXPECT_EQ(source.get(), nullptr);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(AutoPtr, AssignmentOfAPointerDeletesTheOldObject) {
    int destroyed = 0;
    AutoPtr<Base> object(new Watched(&destroyed));
    object = new Watched(&destroyed);
    EXPECT_EQ(destroyed, 1);
    object = nullptr;
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(object.get(), nullptr);
}

TEST(AutoPtr, AssignmentOfItsOwnPointerKeepsTheObject) {
    int destroyed = 0;
    AutoPtr<Base> object(new Watched(&destroyed));
    object = object.get();
    EXPECT_EQ(destroyed, 0);
    EXPECT_NE(object.get(), nullptr);
}

TEST(AutoPtr, SelfAssignmentKeepsTheObject) {
    int destroyed = 0;
    AutoPtr<Base> object(new Watched(&destroyed));
    const AutoPtr<Base>& same = object;
    object = same;
    EXPECT_EQ(destroyed, 0);
    EXPECT_NE(object.get(), nullptr);
}

TEST(AutoPtr, AssignmentTransfersAndDeletesTheOldObject) {
    int oldDestroyed = 0;
    int newDestroyed = 0;
    AutoPtr<Base> object(new Watched(&oldDestroyed));
    const AutoPtr<Base> source(new Watched(&newDestroyed));
    object = source;
    EXPECT_EQ(oldDestroyed, 1);
    EXPECT_EQ(newDestroyed, 0);
    EXPECT_EQ(source.get(), nullptr);
}

TEST(AutoPtr, AssignmentBetweenTwoHoldersOfOnePointerLeavesOne) {
    int destroyed = 0;
    {
        Base* const object = new Watched(&destroyed);
        AutoPtr<Base> first(object);
        const AutoPtr<Base> second(object);
        first = second;
        EXPECT_EQ(first.get(), object);
        EXPECT_EQ(second.get(), nullptr);
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(AutoPtr, TextIsFreedAsAnArray) {
    // The address checker reports an array that is freed as a single object.
    AutoPtr<char> text(new char[20]);
    std::strcpy(text.get(), "text");
    AutoPtr<char> taken = text;
    taken = new char[4]();
    EXPECT_STREQ(taken.get(), "");
    EXPECT_EQ(text.get(), nullptr);
}

TEST(AutoArrayPtr, CopyAndAssignmentTransfer) {
    const AutoArrayPtr<int> source(new int[3]{1, 2, 3});
    const AutoArrayPtr<int> copy(source);
    EXPECT_EQ(source.get(), nullptr);
    EXPECT_EQ(copy[0], 1);
    EXPECT_EQ(copy[2], 3);
    AutoArrayPtr<int> assigned(new int[1]{9});
    assigned = copy;
    EXPECT_EQ(copy.get(), nullptr);
    EXPECT_EQ(assigned[1], 2);
    assigned[1] = 5;
    EXPECT_EQ(assigned.get()[1], 5);
}

TEST(AutoArrayPtr, DeletesEveryElementOnce) {
    struct Element {
        ~Element() { ++*m_destroyed; }
        int* m_destroyed = nullptr;
    };
    int destroyed = 0;
    const auto make = [&] {
        Element* const elements = new Element[2];
        elements[0].m_destroyed = elements[1].m_destroyed = &destroyed;
        return elements;
    };
    {
        AutoArrayPtr<Element> array(make());
        array = array.get();
        const AutoArrayPtr<Element>& same = array;
        array = same;
        EXPECT_EQ(destroyed, 0);
        array = make();
        EXPECT_EQ(destroyed, 2);
        const AutoArrayPtr<Element> twin(array.get());
        array = twin;
        EXPECT_EQ(twin.get(), nullptr);
        EXPECT_EQ(destroyed, 2);
    }
    EXPECT_EQ(destroyed, 4);
}

TEST(AutoRefPtr, TakesAReferenceAndGivesItBack) {
    Referenced object;
    {
        const AutoRefPtr<Referenced> pointer(&object);
        EXPECT_EQ(object.m_count, 2);
        EXPECT_TRUE(pointer == &object);
        EXPECT_FALSE(pointer == nullptr);
        const AutoRefPtr<Referenced> copy(pointer);
        EXPECT_EQ(object.m_count, 3);
    }
    EXPECT_EQ(object.m_count, 1);
}

TEST(AutoRefPtr, NullTakesAndGivesNothing) {
    AutoRefPtr<Referenced> pointer;
    EXPECT_EQ(pointer.get(), nullptr);
    EXPECT_TRUE(pointer == nullptr);
    pointer = AutoRefPtr<Referenced>(nullptr);
    const AutoRefPtr<Referenced> copy(pointer);
    EXPECT_EQ(copy.get(), nullptr);
}

TEST(AutoRefPtr, PreReferencedAdoptsTheReference) {
    Referenced object;
    { const AutoRefPtr<Referenced> pointer(&object, PreReferenced()); }
    EXPECT_EQ(object.m_calls, std::vector<char>{'r'});
    EXPECT_EQ(object.m_count, 0);
}

TEST(AutoRefPtr, AssignmentOfTheSameObjectCallsNothing) {
    Referenced object;
    AutoRefPtr<Referenced> pointer(&object);
    const AutoRefPtr<Referenced> other(&object);
    object.m_calls.clear();
    pointer = other;
    const AutoRefPtr<Referenced>& same = pointer;
    pointer = same;
    EXPECT_TRUE(object.m_calls.empty());
}

TEST(AutoRefPtr, AssignmentPreservesTheNewBeforeItReleasesTheOld) {
    std::vector<char> order;
    struct Ordered {
        int preserve() {
            m_order->push_back('p');
            return 1;
        }
        int release() {
            m_order->push_back('r');
            return 0;
        }
        std::vector<char>* m_order;
    };
    Ordered first{&order};
    Ordered second{&order};
    AutoRefPtr<Ordered> pointer(&first, PreReferenced());
    const AutoRefPtr<Ordered> source(&second, PreReferenced());
    pointer = source;
    EXPECT_EQ(order, (std::vector<char>{'p', 'r'}));
}

TEST(AutoRefPtr, ObjectHeldOnlyByTheOldOneSurvivesTheAssignment) {
    struct Node : RefCount {
        Node() : RefCount(true, 1) {}
        AutoRefPtr<Node> m_next;
    };
    AutoRefPtr<Node> list(new Node, PreReferenced());
    list->m_next = AutoRefPtr<Node>(new Node, PreReferenced());
    Node* const second = list->m_next.get();
    list = list->m_next;
    EXPECT_EQ(list.get(), second);
    EXPECT_EQ(list->getCount(), 1);
}

TEST(AutoReleasePtr, TakesOverAReferenceAndGivesItBack) {
    Referenced object;
    {
        const AutoReleasePtr<Referenced> pointer(&object);
        EXPECT_EQ(pointer.get(), &object);
        EXPECT_EQ(pointer->m_count, 1);
    }
    EXPECT_EQ(object.m_calls, std::vector<char>{'r'});
}

TEST(AutoReleasePtr, AssignmentReleasesTheHeldObject) {
    Referenced first;
    Referenced second;
    {
        AutoReleasePtr<Referenced> pointer(&first);
        pointer = &second;
        EXPECT_EQ(first.m_count, 0);
        EXPECT_EQ(second.m_count, 1);
        pointer = nullptr;
        EXPECT_EQ(second.m_count, 0);
    }
    EXPECT_EQ(second.m_calls, std::vector<char>{'r'});
}
