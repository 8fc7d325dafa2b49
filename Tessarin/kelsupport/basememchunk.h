#pragma once
#include <cstddef>
#include <vector>

// Fixed-size allocator. A refill takes one block of 4084 bytes and threads
// (4084 - size) / size elements of it into a free list; blocks are released only
// when the allocator dies.
class basememchunk {
public:
    static constexpr int block_bytes = 4084;

    explicit basememchunk(int element_size);
    ~basememchunk();
    basememchunk(const basememchunk&) = delete;
    basememchunk& operator=(const basememchunk&) = delete;

    void* alloc();
    void free(void* p);

    int element_size() const { return size_; }
    int per_block() const { return (block_bytes - size_) / size_; }
    int blocks() const { return int(blocks_.size()); }

private:
    void refill();

    int size_;
    void* free_ = nullptr;
    std::vector<char*> blocks_;
};

// Same policy for elements with a release order of their own: freed elements go
// back in front, so the most recently freed is reused first.
class basermemchunk : public basememchunk {
public:
    using basememchunk::basememchunk;
};

// A growing table of pointers that keeps its slots until it dies.
class baseptrtable {
public:
    int add(void* p) {
        slots_.push_back(p);
        return int(slots_.size()) - 1;
    }
    void* operator[](int i) const { return slots_[i]; }
    int size() const { return int(slots_.size()); }
    void clear() { slots_.clear(); }

private:
    std::vector<void*> slots_;
};
