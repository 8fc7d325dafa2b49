#pragma once
#include <cstdint>

#include "Tessarin/kelsupport/basememchunk.h"

// Table of unordered pointer pairs: (a, b) and (b, a) are one entry.
class basepairtable {
public:
    explicit basepairtable(int buckets);
    ~basepairtable();
    basepairtable(const basepairtable&) = delete;
    basepairtable& operator=(const basepairtable&) = delete;

    // The key with the larger low 16 bits goes into the low half of the word, the
    // other, shifted left by 16, is or-ed on top; remainder by the bucket count.
    static int hash(const void* a, const void* b, int buckets);

    bool find(const void* a, const void* b) const;
    void* lookup(const void* a, const void* b) const;
    void insert(const void* a, const void* b, void* value);           // at the bucket head
    bool insert_if_absent(const void* a, const void* b, void* value); // true if inserted
    void insert_or_replace(const void* a, const void* b, void* value);
    void* remove(const void* a, const void* b); // the value, or null
    int size() const { return count_; }
    void clear();

    // Visits every entry; the visitor must not change the table.
    template <class F> void for_each(F&& f) const {
        for (int i = 0; i < n_; ++i)
            for (entry* e = table_[i]; e; e = e->next)
                f(e->a, e->b, e->value);
    }

private:
    struct entry {
        const void* a;
        const void* b;
        void* value;
        entry* next;
    };
    entry* locate(const void* a, const void* b) const;

    int n_;
    entry** table_;
    basememchunk chunk_;
    int count_ = 0;
};
