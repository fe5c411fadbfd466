#pragma once
// String utilities, and the parser of option strings.
//
// An option string is a comma-separated list of items, each "key=value" or
// a bare "key". Blanks around items, keys and values are ignored. Booleans:
// a bare key reads as true; the words true/false, 1/0, yes/no, on/off are
// accepted in any case; any other word reads as false.
#include <string>
#include <vector>

class ksString {
public:
    // Boolean value of key in options; defaultValue when the key is absent.
    static bool getBoolOption(const std::string& options, const std::string& key,
                              bool defaultValue = false);
    // The value of an item "key=value" (text after the first '=' up to the
    // next ','); empty when the key is absent or bare.
    static std::string getStringOption(const std::string& options, const std::string& key);
    // The value at the start of text, up to the first ',' (trimmed): used on
    // the text that follows "key=" in an option string.
    static std::string getStringOption(const std::string& text);
    static int getIntOption(const std::string& options, const std::string& key, int defaultValue);
    static double getDoubleOption(const std::string& options, const std::string& key,
                                  double defaultValue);
    static bool hasOption(const std::string& options, const std::string& key);
    // Parses a boolean word as described above.
    static bool toBool(const std::string& word);

    // Every occurrence of from replaced by to (from must not be empty).
    static std::string replace(const std::string& text, const std::string& from,
                               const std::string& to);
    static std::vector<std::string> split(const std::string& text, char delimiter);
    static std::string trim(const std::string& text);
    static std::string toLower(const std::string& text);
    static bool endsWith(const std::string& text, const std::string& suffix);
    static bool startsWith(const std::string& text, const std::string& prefix);
};
