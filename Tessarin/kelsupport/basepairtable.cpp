#include "Tessarin/kelsupport/basepairtable.h"

#include "Tessarin/kelsupport/kelerror.h"

basepairtable::basepairtable(int buckets) : n_(buckets > 0 ? buckets : 1), chunk_(sizeof(entry)) {
    table_ = new entry*[n_]();
}

basepairtable::~basepairtable() {
    delete[] table_;
}

int basepairtable::hash(const void* a, const void* b, int buckets) {
    uintptr_t ka = reinterpret_cast<uintptr_t>(a), kb = reinterpret_cast<uintptr_t>(b);
    uint32_t la = uint32_t(ka & 0xffff), lb = uint32_t(kb & 0xffff);
    // Equal low halves: order by the whole key, so the hash stays symmetric.
    bool a_low = la > lb || (la == lb && ka >= kb);
    uint32_t lo = a_low ? la : lb;
    uintptr_t other = a_low ? kb : ka;
    uint32_t w = lo | uint32_t(other << 16);
    return int(w % uint32_t(buckets));
}

basepairtable::entry* basepairtable::locate(const void* a, const void* b) const {
    for (entry* e = table_[hash(a, b, n_)]; e; e = e->next)
        if ((e->a == a && e->b == b) || (e->a == b && e->b == a)) return e;
    return nullptr;
}

bool basepairtable::find(const void* a, const void* b) const {
    return locate(a, b) != nullptr;
}

void* basepairtable::lookup(const void* a, const void* b) const {
    entry* e = locate(a, b);
    return e ? e->value : nullptr;
}

void basepairtable::insert(const void* a, const void* b, void* value) {
    entry*& head = table_[hash(a, b, n_)];
    entry* e = static_cast<entry*>(chunk_.alloc());
    *e = {a, b, value, head};
    head = e;
    ++count_;
}

bool basepairtable::insert_if_absent(const void* a, const void* b, void* value) {
    if (locate(a, b)) return false;
    insert(a, b, value);
    return true;
}

void basepairtable::insert_or_replace(const void* a, const void* b, void* value) {
    if (entry* e = locate(a, b))
        e->value = value;
    else
        insert(a, b, value);
}

void* basepairtable::remove(const void* a, const void* b) {
    entry** link = &table_[hash(a, b, n_)];
    for (entry* e = *link; e; link = &e->next, e = e->next) {
        if ((e->a == a && e->b == b) || (e->a == b && e->b == a)) {
            *link = e->next;
            void* v = e->value;
            chunk_.free(e);
            --count_;
            return v;
        }
    }
    return nullptr;
}

void basepairtable::clear() {
    for (int i = 0; i < n_; ++i) {
        for (entry* e = table_[i]; e;) {
            entry* nx = e->next;
            chunk_.free(e);
            e = nx;
        }
        table_[i] = nullptr;
    }
    count_ = 0;
}
