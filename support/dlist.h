#pragma once

// Intrusive doubly linked lists: the node lives inside its client, so that adding to a list allocates nothing.
// **Locks:** the lists have none; their owner's lock guards them.

// One place in a list. With both pointers null it is not linked, or alone in its list.
class DLinkNodeBase {
public:
    DLinkNodeBase() = default;
    DLinkNodeBase(const DLinkNodeBase&) = delete;
    DLinkNodeBase& operator=(const DLinkNodeBase&) = delete;

    DLinkNodeBase* getNext() { return m_next; }
    DLinkNodeBase* getPrev() { return m_prev; }
    const DLinkNodeBase* getNext() const { return m_next; }
    const DLinkNodeBase* getPrev() const { return m_prev; }
    bool isLinked() const { return m_next || m_prev; }

    // Puts the node just behind this one and answers it. Requires: the node is free.
    DLinkNodeBase* append(DLinkNodeBase& node) {
        node.m_prev = this;
        node.m_next = m_next;
        if (m_next) m_next->m_prev = &node;
        m_next = &node;
        return &node;
    }

    // Puts the node just before this one and answers it. Requires: the node is free.
    DLinkNodeBase* insert(DLinkNodeBase& node) {
        node.m_next = this;
        node.m_prev = m_prev;
        if (m_prev) m_prev->m_next = &node;
        m_prev = &node;
        return &node;
    }

    // Takes this node out from between its neighbours.
    void isolate() {
        DLinkNodeBase* const next = m_next;
        DLinkNodeBase* const prev = m_prev;
        if (next) {
            next->m_prev = prev;
            m_next = nullptr;
        }
        if (prev) {
            prev->m_next = next;
            m_prev = nullptr;
        }
    }

private:
    DLinkNodeBase* m_next = nullptr;
    DLinkNodeBase* m_prev = nullptr;
};

// A node that knows the object that it lives in.
template <class T>
class DLinkNode : public DLinkNodeBase {
public:
    explicit DLinkNode(T& client) : m_client(&client) {}

    T* getClient() const { return m_client; }
    DLinkNode* getNext() { return static_cast<DLinkNode*>(DLinkNodeBase::getNext()); }
    DLinkNode* getPrev() { return static_cast<DLinkNode*>(DLinkNodeBase::getPrev()); }
    const DLinkNode* getNext() const { return static_cast<const DLinkNode*>(DLinkNodeBase::getNext()); }
    const DLinkNode* getPrev() const { return static_cast<const DLinkNode*>(DLinkNodeBase::getPrev()); }

    // The neighbour's object, or null without a neighbour.
    T* getNextClient() { return clientOf(getNext()); }
    const T* getNextClient() const { return clientOf(getNext()); }
    T* getPrevClient() { return clientOf(getPrev()); }

private:
    static T* clientOf(const DLinkNode* node) { return node ? node->m_client : nullptr; }

    T* const m_client;  // the object around this node
};

// The list without its type. It doesn't own its nodes.
class DLinkedListBase {
public:
    // Name and number are for whoever traces lists; neither is kept.
    DLinkedListBase([[maybe_unused]] const char* name, [[maybe_unused]] unsigned int number) {}
    DLinkedListBase(const DLinkedListBase&) = delete;
    DLinkedListBase& operator=(const DLinkedListBase&) = delete;

    unsigned int size() const { return m_size; }

    // Adds at the tail. Requires: the node is free.
    void append(DLinkNodeBase& node) {
        if (m_tail) {
            m_tail = m_tail->append(node);
        } else {
            m_head = m_tail = &node;
        }
        ++m_size;
    }

    // Adds behind a node of this list. Requires: the node is free.
    void append(DLinkNodeBase& node, DLinkNodeBase& after) {
        after.append(node);
        if (m_tail == &after) m_tail = &node;
        ++m_size;
    }

    // Adds at the head. Requires: the node is free.
    void insert(DLinkNodeBase& node) {
        if (m_head) {
            m_head = m_head->insert(node);
        } else {
            m_head = m_tail = &node;
        }
        ++m_size;
    }

    // Takes the node out. A node that is linked nowhere is left alone. Requires: it isn't in another list.
    void isolate(DLinkNodeBase& node) {
        // The only element has no neighbours and shows only by being the head.
        if (m_head != &node && !node.isLinked()) return;
        if (m_head == &node) m_head = node.getNext();
        if (m_tail == &node) m_tail = node.getPrev();
        node.isolate();
        --m_size;
    }

    // Takes out the head and answers it; null on an empty list.
    DLinkNodeBase* pop() {
        DLinkNodeBase* const node = m_head;
        if (node) isolate(*node);
        return node;
    }

protected:
    ~DLinkedListBase() = default;

    DLinkNodeBase* m_head = nullptr;
    DLinkNodeBase* m_tail = nullptr;

private:
    unsigned int m_size = 0;
};

// A list of the objects that hold DLinkNode<T>.
template <class T>
class DLinkedList : public DLinkedListBase {
public:
    DLinkedList(const char* name, unsigned int number) : DLinkedListBase(name, number) {}

    DLinkNode<T>* getHead() const { return static_cast<DLinkNode<T>*>(m_head); }
    DLinkNode<T>* getTail() const { return static_cast<DLinkNode<T>*>(m_tail); }
    // Null on an empty list, as is popClient().
    T* getHeadClient() const { return m_head ? getHead()->getClient() : nullptr; }
    T* popClient() {
        DLinkNodeBase* const node = pop();
        return node ? static_cast<DLinkNode<T>*>(node)->getClient() : nullptr;
    }
};
