// Time values: QdxTime (ticks), QdxTimeSpan and QdxDateTime.
#pragma once

#include <cstdint>
#include <string>

#include "qdxsdk/types.h"

namespace qdxsdk {

// A point in time counted in ticks of 1/141,120,000 second. The tick rate is
// a common multiple of every supported frame rate, so frames land on exact
// ticks.
class QdxTime {
public:
    static constexpr long long kTicksPerSecond = 141120000LL;
    static constexpr long long kTicksPerMillisecond = 141120LL;
    static constexpr long long kInfinite = 0x7fffffffffffffffLL;
    static constexpr long long kMinusInfinite = -0x7fffffffffffffffLL;

    // Frame rates. The numbers are part of the file formats; do not reorder.
    enum EMode {
        eDefaultMode = 0,
        eFrames120 = 1,
        eFrames100 = 2,
        eFrames60 = 3,
        eFrames50 = 4,
        eFrames48 = 5,
        eFrames30 = 6,
        eFrames30Drop = 7,
        eNTSCDropFrame = 8,
        eNTSCFullFrame = 9,
        ePAL = 10,
        eFrames24 = 11,
        eFrames1000 = 12,
        eFilmFullFrame = 13,
        eCustom = 14,
        eFrames96 = 15,
        eFrames72 = 16,
        eFrames59dot94 = 17,
        eFrames119dot88 = 18,
        eModesCount = 19
    };

    QdxTime(long long ticks = 0) : mTicks(ticks) {}
    long long Get() const { return mTicks; }
    void Set(long long ticks) { mTicks = ticks; }
    double GetSecondDouble() const { return static_cast<double>(mTicks) / kTicksPerSecond; }
    void SetSecondDouble(double seconds);
    long long GetMilliSeconds() const { return mTicks / kTicksPerMillisecond; }
    void SetMilliSeconds(long long ms) { mTicks = ms * kTicksPerMillisecond; }
    // Frame number in a mode (truncated towards zero) and the time of a frame.
    // eCustom uses the process-wide custom rate (see SetGlobalTimeMode); a
    // scene's custom rate is its own, so code working on a scene passes it
    // (QdxGlobalSettings::GetCustomFrameRate) or uses the settings' frame
    // conversions.
    long long GetFrameCount(EMode mode = eDefaultMode) const;
    double GetFrameCountPrecise(EMode mode = eDefaultMode) const;
    void SetFrame(long long frame, EMode mode = eDefaultMode);
    // The same with the custom rate given: customFrameRate is used when mode
    // is eCustom (a rate that is not finite and positive falls back to the
    // process-wide one) and ignored otherwise.
    long long GetFrameCount(EMode mode, double customFrameRate) const;
    double GetFrameCountPrecise(EMode mode, double customFrameRate) const;
    void SetFrame(long long frame, EMode mode, double customFrameRate);

    // Frames per second of a mode. eDefaultMode stands for the global mode;
    // eCustom gives the process-wide custom rate (30 fps unless changed),
    // never a scene's: ask the scene's global settings for that.
    static double GetFrameRate(EMode mode);
    // Frames per second of a mode with an explicit custom rate (used for
    // eCustom when finite and positive).
    static double GetFrameRate(EMode mode, double customFrameRate);
    // The mode whose frame rate is within precision of frameRate, else eCustom.
    static EMode ConvertFrameRateToTimeMode(double frameRate, double precision = 1e-8);
    // The process-wide default mode and custom rate. Scenes do not read
    // them: each scene keeps its mode and custom rate in its global settings.
    static void SetGlobalTimeMode(EMode mode, double customFrameRate = 0.0);
    static EMode GetGlobalTimeMode();

    friend bool operator==(QdxTime a, QdxTime b) { return a.mTicks == b.mTicks; }
    friend bool operator!=(QdxTime a, QdxTime b) { return a.mTicks != b.mTicks; }
    friend bool operator<(QdxTime a, QdxTime b) { return a.mTicks < b.mTicks; }
    friend bool operator<=(QdxTime a, QdxTime b) { return a.mTicks <= b.mTicks; }
    friend bool operator>(QdxTime a, QdxTime b) { return a.mTicks > b.mTicks; }
    friend bool operator>=(QdxTime a, QdxTime b) { return a.mTicks >= b.mTicks; }
    QdxTime operator+(QdxTime o) const { return QdxTime(mTicks + o.mTicks); }
    QdxTime operator-(QdxTime o) const { return QdxTime(mTicks - o.mTicks); }

private:
    long long mTicks;
};

extern const QdxTime QDX_TIME_INFINITE;
extern const QdxTime QDX_TIME_MINUS_INFINITE;
extern const QdxTime QDX_TIME_ZERO;

class QdxTimeSpan {
public:
    QdxTimeSpan() = default;
    QdxTimeSpan(QdxTime start, QdxTime stop) : mStart(start), mStop(stop) {}
    void Set(QdxTime start, QdxTime stop) {
        mStart = start;
        mStop = stop;
    }
    void SetStart(QdxTime t) { mStart = t; }
    void SetStop(QdxTime t) { mStop = t; }
    QdxTime GetStart() const { return mStart; }
    QdxTime GetStop() const { return mStop; }
    QdxTime GetDuration() const { return mStop - mStart; }
    bool IsInside(QdxTime t) const { return t >= mStart && t <= mStop; }
    // Grows this span to cover other.
    void UnionAssignment(const QdxTimeSpan& other);

private:
    QdxTime mStart, mStop;
};

// Calendar date and time of day. A value holds a date, a time of day or
// both; setDate and setTime add their part, so a value made by setTime
// alone stays a time of day. Invalid until a part has been set.
class QdxDateTime {
public:
    QdxDateTime() = default;
    QdxDateTime(int day, int month, int year, int hour, int minute, int second,
                int millisecond = 0);
    void setDate(int day, int month, int year);
    void setTime(int hour, int minute, int second, int millisecond = 0);
    void clear() { *this = QdxDateTime(); }
    // True when at least one part is set and every set part is in range.
    bool isValid() const;
    bool hasDate() const { return mHasDate; }
    bool hasTime() const { return mHasTime; }
    int day() const { return mDay; }
    int month() const { return mMonth; }
    int year() const { return mYear; }
    int hour() const { return mHour; }
    int minute() const { return mMinute; }
    int second() const { return mSecond; }
    int millisecond() const { return mMillisecond; }
    // ISO-8601 text of the parts that are set: "YYYY-MM-DDTHH:MM:SS",
    // "YYYY-MM-DD" or "HH:MM:SS", the time with ".mmm" when the
    // milliseconds are not zero; an invalid value gives "".
    std::string toString() const;
    // Accepts toString's forms and a space in place of the "T"; false (and
    // unchanged) on anything else, trailing text included.
    bool fromString(const char* text);
    static QdxDateTime currentDateTimeGMT();
    friend bool operator==(const QdxDateTime& a, const QdxDateTime& b);

private:
    int mDay = 0, mMonth = 0, mYear = 0;
    int mHour = 0, mMinute = 0, mSecond = 0, mMillisecond = 0;
    bool mHasDate = false, mHasTime = false;
};

} // namespace qdxsdk
