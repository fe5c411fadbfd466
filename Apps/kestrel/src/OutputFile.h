#pragma once
// Where an output really goes and whether it may be written: refuses to
// write over the input or (with no-clobber) over an existing file, follows a
// symbolic link so that the link itself stays, and keeps an existing file's
// mode across a writer that replaces files by renaming.
#include <filesystem>
#include <string>

class OutputFile {
public:
    // Checks the output for `input`; error() is empty when it may be
    // written.
    OutputFile(const std::string& input, const std::string& output, bool noClobber);

    const std::string& error() const { return _error; }
    // The path to hand to the writer (the link's target for a link).
    const std::string& path() const { return _path; }
    // Puts the earlier file's permissions back after the write.
    void restoreMode() const;

    // Empty when a file can be created in the output's folder, otherwise a
    // message with the system's reason.
    static std::string checkWritable(const std::string& output);

private:
    std::string _error;
    std::string _path;
    bool _hadFile = false;
    std::filesystem::perms _mode = std::filesystem::perms::none;
};
