#include "Tessarin/kelsupport/basememchunk.h"

// A free element holds the link to the next, so sizes are padded to a whole
// number of pointers.
basememchunk::basememchunk(int element_size) {
    int s = element_size < 4 ? 4 : element_size;
    const int w = int(sizeof(void*));
    size_ = (s + w - 1) / w * w;
}

basememchunk::~basememchunk() {
    for (char* b : blocks_)
        delete[] b;
}

void basememchunk::refill() {
    char* block = new char[size_ * 2 > block_bytes ? size_ * 2 : block_bytes];
    blocks_.push_back(block);
    int n = per_block();
    if (n < 1) n = 1;
    for (int i = n - 1; i >= 0; --i) {
        void* e = block + size_t(i) * size_t(size_);
        *static_cast<void**>(e) = free_;
        free_ = e;
    }
}

void* basememchunk::alloc() {
    if (!free_) refill();
    void* e = free_;
    free_ = *static_cast<void**>(e);
    return e;
}

void basememchunk::free(void* p) {
    if (!p) return;
    *static_cast<void**>(p) = free_;
    free_ = p;
}
