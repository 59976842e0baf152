// Small value types of the geometry data: the four-float vector that every
// position, velocity, colour and normal is stored as (16-byte aligned so that
// solver loops can use aligned loads), and row-major 3x3 and 4x4 matrices that
// default to identity. Plain data, no dependencies.
#pragma once

#include <cmath>

struct alignas(16) Vec4f {
    float x = 0.f, y = 0.f, z = 0.f, w = 0.f;

    Vec4f() = default;
    constexpr Vec4f(float x_, float y_, float z_, float w_ = 0.f) : x(x_), y(y_), z(z_), w(w_) {}

    Vec4f operator+(const Vec4f& o) const { return {x + o.x, y + o.y, z + o.z, w + o.w}; }
    Vec4f operator-(const Vec4f& o) const { return {x - o.x, y - o.y, z - o.z, w - o.w}; }
    Vec4f operator*(float s) const { return {x * s, y * s, z * s, w * s}; }
    Vec4f& operator+=(const Vec4f& o)
    {
        x += o.x;
        y += o.y;
        z += o.z;
        w += o.w;
        return *this;
    }
    Vec4f& operator-=(const Vec4f& o)
    {
        x -= o.x;
        y -= o.y;
        z -= o.z;
        w -= o.w;
        return *this;
    }
    Vec4f& operator*=(float s)
    {
        x *= s;
        y *= s;
        z *= s;
        w *= s;
        return *this;
    }
    bool operator==(const Vec4f& o) const { return x == o.x && y == o.y && z == o.z && w == o.w; }
    bool operator!=(const Vec4f& o) const { return !(*this == o); }

    float dot3(const Vec4f& o) const { return x * o.x + y * o.y + z * o.z; }
    float length3() const { return std::sqrt(dot3(*this)); }
    // Cross product of the xyz parts; w of the result is zero.
    Vec4f cross3(const Vec4f& o) const
    {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x, 0.f};
    }
};

inline Vec4f operator*(float s, const Vec4f& v)
{
    return v * s;
}

struct Mat3f {
    float m[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};

    bool operator==(const Mat3f& o) const
    {
        for (int i = 0; i < 9; ++i)
            if (m[i] != o.m[i]) return false;
        return true;
    }
    bool operator!=(const Mat3f& o) const { return !(*this == o); }
};

struct Mat4f {
    float m[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

    bool operator==(const Mat4f& o) const
    {
        for (int i = 0; i < 16; ++i)
            if (m[i] != o.m[i]) return false;
        return true;
    }
    bool operator!=(const Mat4f& o) const { return !(*this == o); }
};
