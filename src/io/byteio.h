// Little-endian field access for the binary cache formats (BIN, SD): typed loads and
// stores at a byte offset, plus ByteReader, a cursor over a block that never reads past
// its end. Every binary reader in io/ decodes through these.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the binary cache formats are decoded for little-endian hosts only"
#endif

template <class T>
inline T loadLE(const uint8_t* p)
{
    static_assert(std::is_trivially_copyable<T>::value, "plain values only");
    T v;
    std::memcpy(&v, p, sizeof(T));
    return v;
}

template <class T>
inline void storeLE(uint8_t* p, T v)
{
    static_assert(std::is_trivially_copyable<T>::value, "plain values only");
    std::memcpy(p, &v, sizeof(T));
}

// A read cursor over [data, data + size). Each get fails (answers false and leaves
// the cursor where it was) when the value would reach past the end.
class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}

    size_t pos() const { return pos_; }
    size_t remaining() const { return size_ - pos_; }

    template <class T>
    bool get(T& out)
    {
        if (remaining() < sizeof(T)) return false;
        out = loadLE<T>(data_ + pos_);
        pos_ += sizeof(T);
        return true;
    }
    bool skip(size_t bytes)
    {
        if (remaining() < bytes) return false;
        pos_ += bytes;
        return true;
    }
    bool bytes(void* out, size_t n)
    {
        if (remaining() < n) return false;
        std::memcpy(out, data_ + pos_, n);
        pos_ += n;
        return true;
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
};
