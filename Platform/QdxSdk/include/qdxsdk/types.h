// Value types of the SDK: strings, vectors, colours, matrices and status.
//
// Conventions of a Qdx scene: right-handed coordinates, angles in degrees,
// Euler rotations applied in the node's rotation order, film sizes in inches,
// focal lengths in millimetres, time in ticks of 1/141,120,000 s.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace qdxsdk {

using QdxBool = bool;
using QdxInt = int;
using QdxUInt = unsigned int;
using QdxFloat = float;
using QdxDouble = double;
using QdxLongLong = long long;

// A UTF-8 string with the small interface the SDK's callers use.
class QdxString {
public:
    QdxString() = default;
    QdxString(const char* s) : mText(s ? s : "") {}
    QdxString(const std::string& s) : mText(s) {}
    QdxString(std::string&& s) : mText(std::move(s)) {}

    const char* Buffer() const { return mText.c_str(); }
    operator const char*() const { return mText.c_str(); }
    const std::string& Str() const { return mText; }
    size_t GetLen() const { return mText.size(); }
    size_t Size() const { return mText.size(); }
    bool IsEmpty() const { return mText.empty(); }
    void Clear() { mText.clear(); }
    // Index of the first occurrence of text at or after start, -1 when absent.
    int Find(const char* text, size_t start = 0) const;
    QdxString Mid(size_t first, size_t count) const;
    QdxString Left(size_t count) const { return Mid(0, count); }
    QdxString Right(size_t count) const;
    QdxString Lower() const;
    QdxString Upper() const;
    QdxString& operator+=(const QdxString& o) {
        mText += o.mText;
        return *this;
    }
    friend QdxString operator+(const QdxString& a, const QdxString& b) {
        return QdxString(a.mText + b.mText);
    }
    friend bool operator==(const QdxString& a, const QdxString& b) { return a.mText == b.mText; }
    friend bool operator==(const QdxString& a, const char* b) { return a.mText == (b ? b : ""); }
    friend bool operator<(const QdxString& a, const QdxString& b) { return a.mText < b.mText; }

private:
    std::string mText;
};

// An ordered list of strings.
class QdxStringList {
public:
    int GetCount() const { return static_cast<int>(mItems.size()); }
    void Add(const QdxString& s) { mItems.push_back(s); }
    const QdxString& GetStringAt(int i) const { return mItems.at(static_cast<size_t>(i)); }
    const QdxString& operator[](int i) const { return GetStringAt(i); }
    int Find(const QdxString& s) const;
    void Clear() { mItems.clear(); }

private:
    std::vector<QdxString> mItems;
};

// Fixed-size vector of doubles with element access and exact comparison.
template <int N> class QdxDoubleN {
public:
    QdxDoubleN() { mData.fill(0.0); }
    double& operator[](int i) { return mData[static_cast<size_t>(i)]; }
    double operator[](int i) const { return mData[static_cast<size_t>(i)]; }
    const double* Buffer() const { return mData.data(); }
    double* Buffer() { return mData.data(); }
    friend bool operator==(const QdxDoubleN& a, const QdxDoubleN& b) { return a.mData == b.mData; }
    friend bool operator!=(const QdxDoubleN& a, const QdxDoubleN& b) { return !(a == b); }

protected:
    std::array<double, N> mData;
};

class QdxDouble2 : public QdxDoubleN<2> {
public:
    QdxDouble2() = default;
    QdxDouble2(double x, double y) { mData = {x, y}; }
};

class QdxDouble3 : public QdxDoubleN<3> {
public:
    QdxDouble3() = default;
    QdxDouble3(double x, double y, double z) { mData = {x, y, z}; }
};

class QdxDouble4 : public QdxDoubleN<4> {
public:
    QdxDouble4() = default;
    QdxDouble4(double x, double y, double z, double w) { mData = {x, y, z, w}; }
};

using QdxVector2 = QdxDouble2;

// Four-component vector; points carry w = 1, directions and angles w = 0 or 1.
class QdxVector4 : public QdxDoubleN<4> {
public:
    QdxVector4() = default;
    QdxVector4(double x, double y, double z, double w = 1.0) { mData = {x, y, z, w}; }
    QdxVector4(const QdxDouble3& v) { mData = {v[0], v[1], v[2], 1.0}; }
    void Set(double x, double y, double z, double w = 1.0) { mData = {x, y, z, w}; }
    QdxVector4 operator+(const QdxVector4& o) const;
    QdxVector4 operator-(const QdxVector4& o) const;
    QdxVector4 operator*(double s) const;
    double Length() const;
};

class QdxColor {
public:
    QdxColor() = default;
    QdxColor(double r, double g, double b, double a = 1.0)
        : mRed(r), mGreen(g), mBlue(b), mAlpha(a) {}
    double mRed = 0.0, mGreen = 0.0, mBlue = 0.0, mAlpha = 1.0;
    friend bool operator==(const QdxColor& a, const QdxColor& b) {
        return a.mRed == b.mRed && a.mGreen == b.mGreen && a.mBlue == b.mBlue &&
               a.mAlpha == b.mAlpha;
    }
};

// Euler rotation orders; the first letter's axis is applied first.
enum EQdxRotationOrder {
    eEulerXYZ = 0,
    eEulerXZY = 1,
    eEulerYZX = 2,
    eEulerYXZ = 3,
    eEulerZXY = 4,
    eEulerZYX = 5,
    eSphericXYZ = 6
};

class QdxQuaternion;

// Affine 4x4 matrix of doubles. Storage: four rows, the translation in row 3
// (Get(3, 0..2)), the axes in rows 0..2. Composition reads like column-vector
// algebra: A * B applies B first, then A, so a node's local matrix is written
// T * Roff * Rp * Rpre * R * ... exactly as the formula says.
class QdxAMatrix {
public:
    QdxAMatrix(); // identity
    QdxAMatrix(const QdxVector4& t, const QdxVector4& rDegreesXYZ, const QdxVector4& s);

    double Get(int row, int col) const { return m[row][col]; }
    void Set(int row, int col, double v) { m[row][col] = v; }
    QdxVector4 GetRow(int row) const {
        return QdxVector4(m[row][0], m[row][1], m[row][2], m[row][3]);
    }
    void SetRow(int row, const QdxVector4& v);

    QdxVector4 GetT() const;
    QdxVector4 GetR() const; // Euler XYZ degrees
    QdxVector4 GetS() const;
    QdxQuaternion GetQ() const;
    void SetT(const QdxVector4& t);
    void SetR(const QdxVector4& rDegreesXYZ);
    void SetS(const QdxVector4& s);
    void SetQ(const QdxQuaternion& q);
    void SetTRS(const QdxVector4& t, const QdxVector4& rDegreesXYZ, const QdxVector4& s);
    void SetIdentity();
    bool IsIdentity(double tolerance = 0.0) const;

    QdxAMatrix Inverse() const;
    QdxAMatrix Transpose() const;
    double Determinant() const;
    QdxAMatrix operator*(const QdxAMatrix& o) const;
    friend bool operator==(const QdxAMatrix& a, const QdxAMatrix& b);
    // Transforms a point (w = 1) or a direction (MultR, no translation).
    QdxVector4 MultT(const QdxVector4& p) const;
    QdxVector4 MultR(const QdxVector4& d) const;

    double m[4][4];
};
using QdxMatrix = QdxAMatrix;
using QdxDouble4x4 = QdxAMatrix;

class QdxQuaternion {
public:
    QdxQuaternion(double x = 0, double y = 0, double z = 0, double w = 1) : v{x, y, z, w} {}
    double operator[](int i) const { return v[static_cast<size_t>(i)]; }
    double& operator[](int i) { return v[static_cast<size_t>(i)]; }
    QdxQuaternion operator*(const QdxQuaternion& o) const;
    QdxQuaternion Conjugate() const { return QdxQuaternion(-v[0], -v[1], -v[2], v[3]); }
    void Normalize();
    double Dot(const QdxQuaternion& o) const;
    // Euler XYZ in degrees, X applied first.
    void ComposeSphericalXYZ(const QdxVector4& eulerDegrees);
    QdxVector4 DecomposeSphericalXYZ() const;
    static QdxQuaternion Slerp(const QdxQuaternion& a, const QdxQuaternion& b, double t);
    std::array<double, 4> v;
};

// Rotation matrix of Euler angles (degrees) in a given order.
QdxAMatrix QdxEulerToMatrix(const QdxVector4& eulerDegrees, EQdxRotationOrder order);
// Euler angles (degrees) of a pure rotation matrix in a given order. When
// hint is given, the solution nearest to it (with 360 degree unrolling) wins.
QdxVector4 QdxMatrixToEuler(const QdxAMatrix& rotation, EQdxRotationOrder order,
                            const QdxVector4* hint = nullptr);

// Result of an operation: a code and an error text.
class QdxStatus {
public:
    enum EStatusCode {
        eSuccess = 0,
        eFailure,
        eInsufficientMemory,
        eInvalidParameter,
        eIndexOutOfRange,
        ePasswordError,
        eInvalidFileVersion,
        eInvalidFile,
        eSceneCheckFail,
    };
    QdxStatus() = default;
    QdxStatus(EStatusCode code, const std::string& text = "") : mCode(code), mText(text) {}
    EStatusCode GetCode() const { return mCode; }
    const char* GetErrorString() const;
    bool Error() const { return mCode != eSuccess; }
    void Clear() {
        mCode = eSuccess;
        mText.clear();
    }
    void SetCode(EStatusCode code, const std::string& text = "") {
        mCode = code;
        mText = text;
    }
    explicit operator bool() const { return mCode == eSuccess; }
    bool operator==(EStatusCode c) const { return mCode == c; }

private:
    EStatusCode mCode = eSuccess;
    std::string mText;
};

} // namespace qdxsdk
