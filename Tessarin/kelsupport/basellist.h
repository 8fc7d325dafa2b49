#pragma once

// Singly linked lists of untyped items. Nodes of every list come from one
// process-wide free list, so building and clearing lists many times a step
// costs no allocation; clearing splices a list's nodes back in one walk.

struct basellist_node {
    basellist_node* next;
    void* item;
};

class basellist {
public:
    basellist() = default;
    basellist(const basellist& o);
    basellist& operator=(const basellist& o);
    ~basellist() { clear(); }

    void append(void* item);
    void prepend(void* item);
    void clear();
    int size() const { return count_; }
    bool empty() const { return count_ == 0; }
    bool contains(const void* item) const;
    // Removes the first node holding item; false (and a report) if absent.
    bool remove(const void* item);
    void* first() const;
    void* last() const;
    void* nth(int i) const;

    // The built-in cursor: start(), then more() / current() / advance(); take()
    // removes the current node and leaves the cursor on its successor.
    void start() {
        cur_ = head_;
        prev_ = nullptr;
    }
    bool more() const { return cur_ != nullptr; }
    void* current() const;
    void* operator()() const { return current(); }
    void advance() {
        if (cur_) {
            prev_ = cur_;
            cur_ = cur_->next;
        }
    }
    void* take();

    basellist_node* head_node() const { return head_; }

    // Free-list statistics, for tests.
    static int free_nodes();

private:
    friend class basellist_iter;
    basellist_node* head_ = nullptr;
    basellist_node* tail_ = nullptr;
    basellist_node* cur_ = nullptr;
    basellist_node* prev_ = nullptr;
    int count_ = 0;
};

// A cursor of its own over a list, for inner loops that must not disturb the
// list's built-in cursor.
class basellist_iter {
public:
    basellist_iter() = default;
    explicit basellist_iter(const basellist& l) : list_(&l), cur_(l.head_) {}
    void attach(const basellist& l) {
        list_ = &l;
        cur_ = l.head_;
    }
    void start();
    bool more() const { return cur_ != nullptr; }
    void* operator()() const;
    void advance() {
        if (cur_) cur_ = cur_->next;
    }

private:
    const basellist* list_ = nullptr;
    basellist_node* cur_ = nullptr;
};

// Typed wrapper.
template <class T> class llist : public basellist {
public:
    void append(T* t) { basellist::append(t); }
    void prepend(T* t) { basellist::prepend(t); }
    bool contains(const T* t) const { return basellist::contains(t); }
    bool remove(const T* t) { return basellist::remove(t); }
    T* head() const;
    T* nth(int i) const { return static_cast<T*>(basellist::nth(i)); }
    T* current() const { return static_cast<T*>(basellist::current()); }
    T* take() { return static_cast<T*>(basellist::take()); }

    // Range-for without touching the built-in cursor.
    struct iterator {
        basellist_node* n;
        T* operator*() const { return static_cast<T*>(n->item); }
        iterator& operator++() {
            n = n->next;
            return *this;
        }
        bool operator!=(const iterator& o) const { return n != o.n; }
    };
    iterator begin() const { return {head_node()}; }
    iterator end() const { return {nullptr}; }
};

void llist_report_empty_head();

template <class T> T* llist<T>::head() const {
    if (empty()) {
        llist_report_empty_head();
        return nullptr;
    }
    return static_cast<T*>(first());
}
