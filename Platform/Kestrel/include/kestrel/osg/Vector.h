#pragma once
// Small fixed-size vectors, points and colours used throughout the scene graph.
#include <array>
#include <cmath>
#include <cstddef>
#include <type_traits>

#include <kestrel/osg/Types.h>

namespace osg {

template <class T, int N> class VecN {
public:
    using ValueType = T;
    static constexpr int Size = N;

    constexpr VecN() : _v{} {}
    template <class... A, class = std::enable_if_t<sizeof...(A) == N && (N > 1)>>
    constexpr VecN(A... a) : _v{static_cast<T>(a)...} {}
    constexpr explicit VecN(T a) requires(N == 1) : _v{a} {}

    constexpr T& operator[](int i) { return _v[static_cast<std::size_t>(i)]; }
    constexpr const T& operator[](int i) const { return _v[static_cast<std::size_t>(i)]; }
    T* getValues() { return _v.data(); }
    const T* getValues() const { return _v.data(); }

    T x() const { return _v[0]; }
    T y() const requires(N > 1) { return _v[1]; }
    T z() const requires(N > 2) { return _v[2]; }
    T w() const requires(N > 3) { return _v[3]; }

    template <class... A> void setValues(A... a) { *this = VecN(a...); }

    VecN operator+(const VecN& o) const {
        VecN r;
        for (int i = 0; i < N; ++i)
            r[i] = _v[i] + o[i];
        return r;
    }
    VecN operator-(const VecN& o) const {
        VecN r;
        for (int i = 0; i < N; ++i)
            r[i] = _v[i] - o[i];
        return r;
    }
    VecN operator-() const {
        VecN r;
        for (int i = 0; i < N; ++i)
            r[i] = -_v[i];
        return r;
    }
    VecN operator*(T s) const {
        VecN r;
        for (int i = 0; i < N; ++i)
            r[i] = _v[i] * s;
        return r;
    }
    VecN operator/(T s) const {
        VecN r;
        for (int i = 0; i < N; ++i)
            r[i] = _v[i] / s;
        return r;
    }
    VecN& operator+=(const VecN& o) {
        for (int i = 0; i < N; ++i)
            _v[i] += o[i];
        return *this;
    }
    VecN& operator-=(const VecN& o) {
        for (int i = 0; i < N; ++i)
            _v[i] -= o[i];
        return *this;
    }
    VecN& operator*=(T s) {
        for (int i = 0; i < N; ++i)
            _v[i] *= s;
        return *this;
    }
    bool operator==(const VecN& o) const = default;

    T dot(const VecN& o) const {
        T s{};
        for (int i = 0; i < N; ++i)
            s += _v[i] * o[i];
        return s;
    }
    T squareLength() const { return dot(*this); }
    T length() const { return static_cast<T>(std::sqrt(squareLength())); }
    void normalize() {
        T l = length();
        if (l > T(0)) *this *= T(1) / l;
    }
    VecN cross(const VecN& o) const requires(N == 3) {
        return VecN(_v[1] * o[2] - _v[2] * o[1], _v[2] * o[0] - _v[0] * o[2],
                    _v[0] * o[1] - _v[1] * o[0]);
    }
    // True when every component differs by at most tolerance.
    bool equals(const VecN& o, T tolerance) const {
        for (int i = 0; i < N; ++i)
            if (std::abs(_v[i] - o[i]) > tolerance) return false;
        return true;
    }

private:
    std::array<T, N> _v;
};

using Vec2f = VecN<Real32, 2>;
using Vec3f = VecN<Real32, 3>;
using Vec4f = VecN<Real32, 4>;
using Vec2d = VecN<Real64, 2>;
using Vec3d = VecN<Real64, 3>;
using Vec4d = VecN<Real64, 4>;
// Points and vectors share one representation; the names say what a value means.
using Pnt2f = Vec2f;
using Pnt3f = Vec3f;
using Pnt4f = Vec4f;
using Pnt3d = Vec3d;
using Color3f = Vec3f;
using Color4f = Vec4f;

} // namespace osg
