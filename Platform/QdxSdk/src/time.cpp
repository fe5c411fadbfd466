// QdxTime, QdxTimeSpan and QdxDateTime.
#include <cmath>
#include <cstdio>
#include <ctime>

#include "qdxsdk/time.h"

namespace qdxsdk {

const QdxTime QDX_TIME_INFINITE(QdxTime::kInfinite);
const QdxTime QDX_TIME_MINUS_INFINITE(QdxTime::kMinusInfinite);
const QdxTime QDX_TIME_ZERO(0);

namespace {
QdxTime::EMode gGlobalMode = QdxTime::eFrames30;
double gCustomRate = 30.0;

double ModeRate(QdxTime::EMode mode) {
    switch (mode) {
    case QdxTime::eFrames120:
        return 120.0;
    case QdxTime::eFrames100:
        return 100.0;
    case QdxTime::eFrames60:
        return 60.0;
    case QdxTime::eFrames50:
        return 50.0;
    case QdxTime::eFrames48:
        return 48.0;
    case QdxTime::eFrames30:
        return 30.0;
    case QdxTime::eFrames30Drop:
        return 30.0;
    case QdxTime::eNTSCDropFrame:
        return 29.97002617;
    case QdxTime::eNTSCFullFrame:
        return 29.97002617;
    case QdxTime::ePAL:
        return 25.0;
    case QdxTime::eFrames24:
        return 24.0;
    case QdxTime::eFrames1000:
        return 1000.0;
    case QdxTime::eFilmFullFrame:
        return 23.976;
    case QdxTime::eFrames96:
        return 96.0;
    case QdxTime::eFrames72:
        return 72.0;
    case QdxTime::eFrames59dot94:
        return 59.94;
    case QdxTime::eFrames119dot88:
        return 119.88;
    default:
        return 0.0;
    }
}
} // namespace

double QdxTime::GetFrameRate(EMode mode) {
    return GetFrameRate(mode, gCustomRate);
}

double QdxTime::GetFrameRate(EMode mode, double customFrameRate) {
    if (mode == eDefaultMode) mode = gGlobalMode;
    if (mode == eCustom)
        return std::isfinite(customFrameRate) && customFrameRate > 0 ? customFrameRate
                                                                     : gCustomRate;
    double r = ModeRate(mode);
    return r > 0 ? r : 30.0;
}

QdxTime::EMode QdxTime::ConvertFrameRateToTimeMode(double frameRate, double precision) {
    for (int m = eFrames120; m < eModesCount; ++m) {
        if (m == eCustom || m == eFrames30Drop || m == eNTSCDropFrame) continue;
        if (std::fabs(ModeRate(static_cast<EMode>(m)) - frameRate) <= precision)
            return static_cast<EMode>(m);
    }
    return eCustom;
}

void QdxTime::SetGlobalTimeMode(EMode mode, double customFrameRate) {
    gGlobalMode = mode == eDefaultMode ? eFrames30 : mode;
    if (mode == eCustom && customFrameRate > 0) gCustomRate = customFrameRate;
}

QdxTime::EMode QdxTime::GetGlobalTimeMode() {
    return gGlobalMode;
}

void QdxTime::SetSecondDouble(double seconds) {
    mTicks = static_cast<long long>(std::llround(seconds * static_cast<double>(kTicksPerSecond)));
}

double QdxTime::GetFrameCountPrecise(EMode mode) const {
    return GetFrameCountPrecise(mode, gCustomRate);
}

double QdxTime::GetFrameCountPrecise(EMode mode, double customFrameRate) const {
    return GetSecondDouble() * GetFrameRate(mode, customFrameRate);
}

long long QdxTime::GetFrameCount(EMode mode) const {
    return GetFrameCount(mode, gCustomRate);
}

long long QdxTime::GetFrameCount(EMode mode, double customFrameRate) const {
    double rate = GetFrameRate(mode, customFrameRate);
    double ticksPerFrame = static_cast<double>(kTicksPerSecond) / rate;
    return static_cast<long long>(static_cast<double>(mTicks) / ticksPerFrame +
                                  1e-9 * (mTicks >= 0 ? 1 : -1));
}

void QdxTime::SetFrame(long long frame, EMode mode) {
    SetFrame(frame, mode, gCustomRate);
}

void QdxTime::SetFrame(long long frame, EMode mode, double customFrameRate) {
    double rate = GetFrameRate(mode, customFrameRate);
    double ticks = static_cast<double>(frame) * static_cast<double>(kTicksPerSecond) / rate;
    mTicks = static_cast<long long>(std::llround(ticks));
}

void QdxTimeSpan::UnionAssignment(const QdxTimeSpan& o) {
    if (o.mStart < mStart) mStart = o.mStart;
    if (o.mStop > mStop) mStop = o.mStop;
}

QdxDateTime::QdxDateTime(int day, int month, int year, int hour, int minute, int second,
                         int millisecond) {
    setDate(day, month, year);
    setTime(hour, minute, second, millisecond);
}

void QdxDateTime::setDate(int day, int month, int year) {
    mDay = day;
    mMonth = month;
    mYear = year;
    mHasDate = true;
}

void QdxDateTime::setTime(int hour, int minute, int second, int millisecond) {
    mHour = hour;
    mMinute = minute;
    mSecond = second;
    mMillisecond = millisecond;
    mHasTime = true;
}

bool QdxDateTime::isValid() const {
    const bool date =
        mYear >= 1 && mYear <= 9999 && mMonth >= 1 && mMonth <= 12 && mDay >= 1 && mDay <= 31;
    const bool time = mHour >= 0 && mHour < 24 && mMinute >= 0 && mMinute < 60 && mSecond >= 0 &&
                      mSecond < 61 && mMillisecond >= 0 && mMillisecond < 1000;
    return (mHasDate || mHasTime) && (!mHasDate || date) && (!mHasTime || time);
}

std::string QdxDateTime::toString() const {
    if (!isValid()) return std::string();
    char buf[64];
    int n = 0;
    if (mHasDate) n = std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", mYear, mMonth, mDay);
    if (mHasTime) {
        if (mHasDate) buf[n++] = 'T';
        n += std::snprintf(buf + n, sizeof buf - static_cast<size_t>(n), "%02d:%02d:%02d", mHour,
                           mMinute, mSecond);
        if (mMillisecond != 0)
            std::snprintf(buf + n, sizeof buf - static_cast<size_t>(n), ".%03d", mMillisecond);
    }
    return buf;
}

namespace {
// Reads exactly count digits at p; false when one is missing.
bool Digits(const char*& p, int count, int& out) {
    out = 0;
    for (int i = 0; i < count; ++i, ++p) {
        if (*p < '0' || *p > '9') return false;
        out = out * 10 + (*p - '0');
    }
    return true;
}

bool ParseTime(const char*& p, QdxDateTime& r) {
    int h = 0, mi = 0, s = 0, ms = 0;
    if (!Digits(p, 2, h) || *p++ != ':' || !Digits(p, 2, mi) || *p++ != ':' || !Digits(p, 2, s))
        return false;
    if (*p == '.') {
        ++p;
        if (!Digits(p, 3, ms)) return false;
    }
    r.setTime(h, mi, s, ms);
    return true;
}
} // namespace

bool QdxDateTime::fromString(const char* text) {
    if (!text) return false;
    const char* p = text;
    QdxDateTime r;
    if (p[0] != '\0' && p[1] != '\0' && p[2] == ':') {
        if (!ParseTime(p, r)) return false;
    } else {
        int y = 0, mo = 0, d = 0;
        if (!Digits(p, 4, y) || *p++ != '-' || !Digits(p, 2, mo) || *p++ != '-' || !Digits(p, 2, d))
            return false;
        r.setDate(d, mo, y);
        if (*p == 'T' || *p == ' ') {
            ++p;
            if (!ParseTime(p, r)) return false;
        }
    }
    if (*p != '\0' || !r.isValid()) return false;
    *this = r;
    return true;
}

QdxDateTime QdxDateTime::currentDateTimeGMT() {
    std::time_t now = std::time(nullptr);
    std::tm tm{};
    gmtime_r(&now, &tm);
    return QdxDateTime(tm.tm_mday, tm.tm_mon + 1, tm.tm_year + 1900, tm.tm_hour, tm.tm_min,
                       tm.tm_sec, 0);
}

bool operator==(const QdxDateTime& a, const QdxDateTime& b) {
    return a.mHasDate == b.mHasDate && a.mHasTime == b.mHasTime && a.mDay == b.mDay &&
           a.mMonth == b.mMonth && a.mYear == b.mYear && a.mHour == b.mHour &&
           a.mMinute == b.mMinute && a.mSecond == b.mSecond && a.mMillisecond == b.mMillisecond;
}

} // namespace qdxsdk
