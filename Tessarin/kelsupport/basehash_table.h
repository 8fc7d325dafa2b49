#pragma once
#include <cstdint>

#include "Tessarin/kelsupport/basellist.h"

// String-keyed hash table with a fixed bucket count, each bucket a list, and a
// one-entry cache of the last key found.
class basehash_table {
public:
    explicit basehash_table(int buckets);
    ~basehash_table();
    basehash_table(const basehash_table&) = delete;
    basehash_table& operator=(const basehash_table&) = delete;

    // Signed bytes, h = (h + h) ^ byte, absolute value, remainder by the bucket count.
    static int hash(const char* key, int buckets);

    void insert(const char* key, void* value); // replaces the value of an existing key
    bool find(const char* key) const;
    void* lookup(const char* key) const;     // null when absent
    void* operator[](const char* key) const; // reports when absent
    void* remove(const char* key);           // reports when absent
    int size() const { return count_; }
    int buckets() const { return n_; }

private:
    struct entry;
    entry* locate(const char* key) const;

    int n_;
    basellist* table_ = nullptr;
    int count_ = 0;
    mutable entry* last_ = nullptr;
};
