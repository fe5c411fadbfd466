// Strings, vectors, matrices, quaternions and Euler angles.
#include <algorithm>
#include <cctype>
#include <cmath>

#include "qdxsdk/types.h"

namespace qdxsdk {

namespace {
constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;
} // namespace

int QdxString::Find(const char* text, size_t start) const {
    size_t at = mText.find(text ? text : "", start);
    return at == std::string::npos ? -1 : static_cast<int>(at);
}

QdxString QdxString::Mid(size_t first, size_t count) const {
    if (first >= mText.size()) return QdxString();
    return QdxString(mText.substr(first, count));
}

QdxString QdxString::Right(size_t count) const {
    if (count >= mText.size()) return *this;
    return QdxString(mText.substr(mText.size() - count));
}

QdxString QdxString::Lower() const {
    std::string s = mText;
    for (char& c : s)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return QdxString(std::move(s));
}

QdxString QdxString::Upper() const {
    std::string s = mText;
    for (char& c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return QdxString(std::move(s));
}

int QdxStringList::Find(const QdxString& s) const {
    for (size_t i = 0; i < mItems.size(); ++i)
        if (mItems[i] == s) return static_cast<int>(i);
    return -1;
}

QdxVector4 QdxVector4::operator+(const QdxVector4& o) const {
    return QdxVector4(mData[0] + o[0], mData[1] + o[1], mData[2] + o[2], mData[3]);
}
QdxVector4 QdxVector4::operator-(const QdxVector4& o) const {
    return QdxVector4(mData[0] - o[0], mData[1] - o[1], mData[2] - o[2], mData[3]);
}
QdxVector4 QdxVector4::operator*(double s) const {
    return QdxVector4(mData[0] * s, mData[1] * s, mData[2] * s, mData[3]);
}
double QdxVector4::Length() const {
    return std::sqrt(mData[0] * mData[0] + mData[1] * mData[1] + mData[2] * mData[2]);
}

// ---------------------------------------------------------------- matrices
// Storage is the transpose of the column-vector matrix: m[i][j] = Mcol[j][i].

QdxAMatrix::QdxAMatrix() {
    SetIdentity();
}

QdxAMatrix::QdxAMatrix(const QdxVector4& t, const QdxVector4& r, const QdxVector4& s) {
    SetTRS(t, r, s);
}

void QdxAMatrix::SetIdentity() {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            m[i][j] = i == j ? 1.0 : 0.0;
}

bool QdxAMatrix::IsIdentity(double tolerance) const {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (std::fabs(m[i][j] - (i == j ? 1.0 : 0.0)) > tolerance) return false;
    return true;
}

void QdxAMatrix::SetRow(int row, const QdxVector4& v) {
    for (int j = 0; j < 4; ++j)
        m[row][j] = v[j];
}

QdxVector4 QdxAMatrix::GetT() const {
    return QdxVector4(m[3][0], m[3][1], m[3][2], 1.0);
}

void QdxAMatrix::SetT(const QdxVector4& t) {
    m[3][0] = t[0];
    m[3][1] = t[1];
    m[3][2] = t[2];
}

QdxVector4 QdxAMatrix::GetS() const {
    double s[3];
    for (int i = 0; i < 3; ++i)
        s[i] = std::sqrt(m[i][0] * m[i][0] + m[i][1] * m[i][1] + m[i][2] * m[i][2]);
    if (Determinant() < 0) s[0] = -s[0];
    return QdxVector4(s[0], s[1], s[2], 1.0);
}

namespace {
QdxAMatrix RotationPart(const QdxAMatrix& a) {
    QdxVector4 s = a.GetS();
    QdxAMatrix r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i][j] = s[i] != 0.0 ? a.m[i][j] / s[i] : (i == j ? 1 : 0);
    return r;
}
} // namespace

QdxVector4 QdxAMatrix::GetR() const {
    QdxVector4 e = QdxMatrixToEuler(RotationPart(*this), eEulerXYZ);
    e[3] = 1.0;
    return e;
}

QdxQuaternion QdxAMatrix::GetQ() const {
    QdxAMatrix r = RotationPart(*this);
    // Column-vector matrix element (row, col) is r.m[col][row].
    auto R = [&](int row, int col) { return r.m[col][row]; };
    double tr = R(0, 0) + R(1, 1) + R(2, 2);
    QdxQuaternion q;
    if (tr > 0) {
        double s = std::sqrt(tr + 1.0) * 2;
        q = QdxQuaternion((R(2, 1) - R(1, 2)) / s, (R(0, 2) - R(2, 0)) / s, (R(1, 0) - R(0, 1)) / s,
                          0.25 * s);
    } else if (R(0, 0) > R(1, 1) && R(0, 0) > R(2, 2)) {
        double s = std::sqrt(1.0 + R(0, 0) - R(1, 1) - R(2, 2)) * 2;
        q = QdxQuaternion(0.25 * s, (R(0, 1) + R(1, 0)) / s, (R(0, 2) + R(2, 0)) / s,
                          (R(2, 1) - R(1, 2)) / s);
    } else if (R(1, 1) > R(2, 2)) {
        double s = std::sqrt(1.0 + R(1, 1) - R(0, 0) - R(2, 2)) * 2;
        q = QdxQuaternion((R(0, 1) + R(1, 0)) / s, 0.25 * s, (R(1, 2) + R(2, 1)) / s,
                          (R(0, 2) - R(2, 0)) / s);
    } else {
        double s = std::sqrt(1.0 + R(2, 2) - R(0, 0) - R(1, 1)) * 2;
        q = QdxQuaternion((R(0, 2) + R(2, 0)) / s, (R(1, 2) + R(2, 1)) / s, 0.25 * s,
                          (R(1, 0) - R(0, 1)) / s);
    }
    q.Normalize();
    return q;
}

void QdxAMatrix::SetR(const QdxVector4& r) {
    SetTRS(GetT(), r, GetS());
}
void QdxAMatrix::SetS(const QdxVector4& s) {
    SetTRS(GetT(), GetR(), s);
}

void QdxAMatrix::SetQ(const QdxQuaternion& q) {
    QdxVector4 t = GetT(), s = GetS();
    double x = q[0], y = q[1], z = q[2], w = q[3];
    double R[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                      {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                      {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    SetIdentity();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m[i][j] = R[j][i] * s[i];
    SetT(t);
}

void QdxAMatrix::SetTRS(const QdxVector4& t, const QdxVector4& r, const QdxVector4& s) {
    QdxAMatrix rot = QdxEulerToMatrix(r, eEulerXYZ);
    SetIdentity();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m[i][j] = rot.m[i][j] * s[i];
    SetT(t);
}

QdxAMatrix QdxAMatrix::operator*(const QdxAMatrix& o) const {
    // Column-vector product this * o is the storage product o.m x this.m.
    QdxAMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double acc = 0.0;
            for (int k = 0; k < 4; ++k)
                acc += o.m[i][k] * m[k][j];
            r.m[i][j] = acc;
        }
    return r;
}

bool operator==(const QdxAMatrix& a, const QdxAMatrix& b) {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (a.m[i][j] != b.m[i][j]) return false;
    return true;
}

QdxAMatrix QdxAMatrix::Transpose() const {
    QdxAMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = m[j][i];
    return r;
}

double QdxAMatrix::Determinant() const {
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
}

QdxAMatrix QdxAMatrix::Inverse() const {
    // General 4x4 inverse by Gauss-Jordan elimination with partial pivoting.
    double a[4][8];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            a[i][j] = m[i][j];
            a[i][j + 4] = i == j ? 1.0 : 0.0;
        }
    for (int c = 0; c < 4; ++c) {
        int p = c;
        for (int r = c + 1; r < 4; ++r)
            if (std::fabs(a[r][c]) > std::fabs(a[p][c])) p = r;
        if (std::fabs(a[p][c]) < 1e-300) return QdxAMatrix();
        if (p != c)
            for (int j = 0; j < 8; ++j)
                std::swap(a[p][j], a[c][j]);
        double inv = 1.0 / a[c][c];
        for (int j = 0; j < 8; ++j)
            a[c][j] *= inv;
        for (int r = 0; r < 4; ++r) {
            if (r == c) continue;
            double f = a[r][c];
            if (f == 0.0) continue;
            for (int j = 0; j < 8; ++j)
                a[r][j] -= f * a[c][j];
        }
    }
    QdxAMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = a[i][j + 4];
    return r;
}

QdxVector4 QdxAMatrix::MultT(const QdxVector4& p) const {
    double r[3];
    for (int j = 0; j < 3; ++j)
        r[j] = p[0] * m[0][j] + p[1] * m[1][j] + p[2] * m[2][j] + m[3][j];
    return QdxVector4(r[0], r[1], r[2], 1.0);
}

QdxVector4 QdxAMatrix::MultR(const QdxVector4& d) const {
    double r[3];
    for (int j = 0; j < 3; ++j)
        r[j] = d[0] * m[0][j] + d[1] * m[1][j] + d[2] * m[2][j];
    return QdxVector4(r[0], r[1], r[2], 0.0);
}

// ---------------------------------------------------------------- Euler

namespace {
// Axes of an order: first applied, second, third.
void OrderAxes(EQdxRotationOrder order, int& i, int& j, int& k) {
    switch (order) {
    case eEulerXZY:
        i = 0, j = 2, k = 1;
        break;
    case eEulerYZX:
        i = 1, j = 2, k = 0;
        break;
    case eEulerYXZ:
        i = 1, j = 0, k = 2;
        break;
    case eEulerZXY:
        i = 2, j = 0, k = 1;
        break;
    case eEulerZYX:
        i = 2, j = 1, k = 0;
        break;
    default:
        i = 0, j = 1, k = 2;
        break;
    }
}

// Column-vector rotation about one axis.
void AxisRotation(int axis, double degrees, double R[3][3]) {
    double c = std::cos(degrees * kDeg), s = std::sin(degrees * kDeg);
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            R[a][b] = a == b ? 1.0 : 0.0;
    int u = (axis + 1) % 3, v = (axis + 2) % 3;
    R[u][u] = c;
    R[u][v] = -s;
    R[v][u] = s;
    R[v][v] = c;
}

void Mul3(const double A[3][3], const double B[3][3], double C[3][3]) {
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b) {
            double acc = 0;
            for (int k = 0; k < 3; ++k)
                acc += A[a][k] * B[k][b];
            C[a][b] = acc;
        }
}

double Unroll(double angle, double near) {
    double d = angle - near;
    double turns = std::round(d / 360.0);
    return angle - turns * 360.0;
}
} // namespace

QdxAMatrix QdxEulerToMatrix(const QdxVector4& e, EQdxRotationOrder order) {
    int i, j, k;
    OrderAxes(order, i, j, k);
    double Ri[3][3], Rj[3][3], Rk[3][3], T[3][3], R[3][3];
    AxisRotation(i, e[i], Ri);
    AxisRotation(j, e[j], Rj);
    AxisRotation(k, e[k], Rk);
    Mul3(Rj, Ri, T);
    Mul3(Rk, T, R);
    QdxAMatrix out;
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            out.m[b][a] = R[a][b];
    return out;
}

QdxVector4 QdxMatrixToEuler(const QdxAMatrix& rot, EQdxRotationOrder order,
                            const QdxVector4* hint) {
    int i, j, k;
    OrderAxes(order, i, j, k);
    bool even = (i == 0 && j == 1) || (i == 1 && j == 2) || (i == 2 && j == 0);
    double sign = even ? 1.0 : -1.0;
    auto R = [&](int row, int col) { return rot.m[col][row]; };
    double sb = std::clamp(-sign * R(k, i), -1.0, 1.0);
    double beta = std::asin(sb);
    double cb = std::sqrt(R(i, i) * R(i, i) + sign * sign * R(j, i) * R(j, i));
    double alpha, gamma;
    if (cb > 1e-12) {
        alpha = std::atan2(sign * R(k, j), R(k, k));
        gamma = std::atan2(sign * R(j, i), R(i, i));
    } else {
        alpha = 0.0;
        gamma = std::atan2(-sign * R(i, j), R(j, j));
    }
    double sol[2][3] = {{alpha / kDeg, beta / kDeg, gamma / kDeg},
                        {alpha / kDeg + 180.0, 180.0 - beta / kDeg, gamma / kDeg + 180.0}};
    int best = 0;
    if (hint) {
        double bestDist = 1e300;
        int axes[3] = {i, j, k};
        for (int s = 0; s < 2; ++s) {
            double dist = 0;
            for (int a = 0; a < 3; ++a) {
                sol[s][a] = Unroll(sol[s][a], (*hint)[axes[a]]);
                double d = sol[s][a] - (*hint)[axes[a]];
                dist += d * d;
            }
            if (dist < bestDist) bestDist = dist, best = s;
        }
    }
    QdxVector4 out(0, 0, 0, 1);
    out[i] = sol[best][0];
    out[j] = sol[best][1];
    out[k] = sol[best][2];
    return out;
}

// ---------------------------------------------------------------- quaternions

QdxQuaternion QdxQuaternion::operator*(const QdxQuaternion& o) const {
    const auto& a = v;
    const auto& b = o.v;
    return QdxQuaternion(a[3] * b[0] + a[0] * b[3] + a[1] * b[2] - a[2] * b[1],
                         a[3] * b[1] - a[0] * b[2] + a[1] * b[3] + a[2] * b[0],
                         a[3] * b[2] + a[0] * b[1] - a[1] * b[0] + a[2] * b[3],
                         a[3] * b[3] - a[0] * b[0] - a[1] * b[1] - a[2] * b[2]);
}

void QdxQuaternion::Normalize() {
    double n = std::sqrt(Dot(*this));
    if (n > 0)
        for (double& x : v)
            x /= n;
}

double QdxQuaternion::Dot(const QdxQuaternion& o) const {
    return v[0] * o.v[0] + v[1] * o.v[1] + v[2] * o.v[2] + v[3] * o.v[3];
}

void QdxQuaternion::ComposeSphericalXYZ(const QdxVector4& e) {
    QdxAMatrix m = QdxEulerToMatrix(e, eEulerXYZ);
    *this = m.GetQ();
}

QdxVector4 QdxQuaternion::DecomposeSphericalXYZ() const {
    QdxAMatrix m;
    m.SetQ(*this);
    return QdxMatrixToEuler(m, eEulerXYZ);
}

QdxQuaternion QdxQuaternion::Slerp(const QdxQuaternion& a, const QdxQuaternion& b0, double t) {
    QdxQuaternion b = b0;
    double d = a.Dot(b);
    if (d < 0) {
        d = -d;
        for (double& x : b.v)
            x = -x;
    }
    double wa, wb;
    if (d > 0.9999995) {
        wa = 1 - t;
        wb = t;
    } else {
        double th = std::acos(d), s = std::sin(th);
        wa = std::sin((1 - t) * th) / s;
        wb = std::sin(t * th) / s;
    }
    QdxQuaternion r(wa * a[0] + wb * b[0], wa * a[1] + wb * b[1], wa * a[2] + wb * b[2],
                    wa * a[3] + wb * b[3]);
    r.Normalize();
    return r;
}

const char* QdxStatus::GetErrorString() const {
    if (!mText.empty()) return mText.c_str();
    switch (mCode) {
    case eSuccess:
        return "Success";
    case eFailure:
        return "Failure";
    case eInsufficientMemory:
        return "Out of memory";
    case eInvalidParameter:
        return "Invalid parameter";
    case eIndexOutOfRange:
        return "Index out of range";
    case ePasswordError:
        return "Password error";
    case eInvalidFileVersion:
        return "Unsupported file version";
    case eInvalidFile:
        return "Invalid file";
    case eSceneCheckFail:
        return "Scene check failed";
    }
    return "Unknown error";
}

} // namespace qdxsdk
