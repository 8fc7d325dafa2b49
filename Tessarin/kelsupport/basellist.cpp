#include "Tessarin/kelsupport/basellist.h"

#include "Tessarin/kelsupport/basememchunk.h"
#include "Tessarin/kelsupport/kelerror.h"

namespace {

basememchunk& node_chunk() {
    static basememchunk chunk(sizeof(basellist_node));
    return chunk;
}

basellist_node* free_list = nullptr;
int free_count = 0;

basellist_node* new_node(void* item) {
    basellist_node* n = free_list;
    if (n) {
        free_list = n->next;
        --free_count;
    } else {
        n = static_cast<basellist_node*>(node_chunk().alloc());
    }
    n->next = nullptr;
    n->item = item;
    return n;
}

void free_node(basellist_node* n) {
    n->next = free_list;
    free_list = n;
    ++free_count;
}

} // namespace

int basellist::free_nodes() {
    return free_count;
}

void llist_report_empty_head() {
    kel::fatal("llist::head: empty list");
}

basellist::basellist(const basellist& o) {
    for (basellist_node* n = o.head_; n; n = n->next)
        append(n->item);
}

basellist& basellist::operator=(const basellist& o) {
    if (this == &o) return *this;
    clear();
    for (basellist_node* n = o.head_; n; n = n->next)
        append(n->item);
    return *this;
}

void basellist::append(void* item) {
    basellist_node* n = new_node(item);
    if (tail_)
        tail_->next = n;
    else
        head_ = n;
    tail_ = n;
    ++count_;
}

void basellist::prepend(void* item) {
    basellist_node* n = new_node(item);
    n->next = head_;
    head_ = n;
    if (!tail_) tail_ = n;
    if (cur_ == n->next && cur_) prev_ = n;
    ++count_;
}

void basellist::clear() {
    if (head_) {
        // Splice the whole chain onto the free list in one walk.
        int n = 1;
        for (basellist_node* p = head_; p->next; p = p->next)
            ++n;
        tail_->next = free_list;
        free_list = head_;
        free_count += n;
    }
    head_ = tail_ = cur_ = prev_ = nullptr;
    count_ = 0;
}

bool basellist::contains(const void* item) const {
    for (basellist_node* n = head_; n; n = n->next)
        if (n->item == item) return true;
    return false;
}

bool basellist::remove(const void* item) {
    basellist_node* prev = nullptr;
    for (basellist_node* n = head_; n; prev = n, n = n->next) {
        if (n->item != item) continue;
        if (prev)
            prev->next = n->next;
        else
            head_ = n->next;
        if (tail_ == n) tail_ = prev;
        if (cur_ == n) cur_ = n->next;
        if (prev_ == n) prev_ = prev;
        free_node(n);
        --count_;
        return true;
    }
    kel::fatal("basellist::take: cannot locate item");
    return false;
}

void* basellist::first() const {
    if (!head_) {
        kel::fatal("basellist::operator(): empty list");
        return nullptr;
    }
    return head_->item;
}

void* basellist::last() const {
    if (!tail_) {
        kel::fatal("basellist::operator(): empty list");
        return nullptr;
    }
    return tail_->item;
}

void* basellist::nth(int i) const {
    basellist_node* n = head_;
    for (int k = 0; n && k < i; ++k)
        n = n->next;
    if (!n || i < 0) {
        kel::fatal("basellist::nth: item # %d does not exist", i);
        return nullptr;
    }
    return n->item;
}

void* basellist::current() const {
    if (!head_) {
        kel::fatal("basellist::operator(): empty list");
        return nullptr;
    }
    return cur_ ? cur_->item : nullptr;
}

void* basellist::take() {
    if (!head_) {
        kel::fatal("basellist::take: empty list");
        return nullptr;
    }
    if (!cur_) {
        kel::fatal("basellist::take: end of list");
        return nullptr;
    }
    basellist_node* n = cur_;
    if (prev_)
        prev_->next = n->next;
    else
        head_ = n->next;
    if (tail_ == n) tail_ = prev_;
    cur_ = n->next;
    void* item = n->item;
    free_node(n);
    --count_;
    return item;
}

void basellist_iter::start() {
    if (!list_) {
        kel::fatal("basellist_iter::start: not pointing to any list");
        return;
    }
    cur_ = list_->head_;
}

void* basellist_iter::operator()() const {
    if (!list_ || !list_->head_) {
        kel::fatal("basellist_iter::operator(): empty list");
        return nullptr;
    }
    return cur_ ? cur_->item : nullptr;
}
