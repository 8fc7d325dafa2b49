#include "Tessarin/kelsupport/basehash_table.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "Tessarin/kelsupport/kelerror.h"

struct basehash_table::entry {
    std::string key;
    void* value;
};

basehash_table::basehash_table(int buckets) : n_(buckets) {
    if (buckets <= 0) {
        kel::fatal("basehash_table::basehash_table: bad size (%d)", buckets);
        n_ = 1;
    }
    table_ = new basellist[n_];
}

basehash_table::~basehash_table() {
    for (int b = 0; b < n_; ++b)
        for (basellist_iter it(table_[b]); it.more(); it.advance())
            delete static_cast<entry*>(it());
    delete[] table_;
}

int basehash_table::hash(const char* key, int buckets) {
    // Wraps like a 32-bit int would.
    uint32_t h = 0;
    for (const char* c = key; *c; ++c)
        h = (h + h) ^ uint32_t(int32_t(static_cast<signed char>(*c)));
    int64_t v = int32_t(h);
    if (v < 0) v = -v;
    return int(v % buckets);
}

basehash_table::entry* basehash_table::locate(const char* key) const {
    if (last_ && last_->key == key) return last_;
    basellist& l = table_[hash(key, n_)];
    for (basellist_iter it(l); it.more(); it.advance()) {
        entry* e = static_cast<entry*>(it());
        if (e->key == key) {
            last_ = e;
            return e;
        }
    }
    return nullptr;
}

void basehash_table::insert(const char* key, void* value) {
    if (entry* e = locate(key)) {
        e->value = value;
        return;
    }
    entry* e = new entry{key, value};
    table_[hash(key, n_)].prepend(e);
    ++count_;
}

bool basehash_table::find(const char* key) const {
    return locate(key) != nullptr;
}

void* basehash_table::lookup(const char* key) const {
    entry* e = locate(key);
    return e ? e->value : nullptr;
}

void* basehash_table::operator[](const char* key) const {
    entry* e = locate(key);
    if (!e) {
        kel::fatal("basehash_table::[]: entry '%s' not found", key);
        return nullptr;
    }
    return e->value;
}

void* basehash_table::remove(const char* key) {
    entry* e = locate(key);
    if (!e) {
        kel::fatal("basehash_table::remove: entry '%s' not found", key);
        return nullptr;
    }
    table_[hash(key, n_)].remove(e);
    if (last_ == e) last_ = nullptr;
    void* v = e->value;
    delete e;
    --count_;
    return v;
}
