#pragma once
// TatomicFile: writes a file so that a reader, or a crash, sees either the
// earlier file or the complete new one, never a part of it. The data goes
// to a temporary file beside the target, which is renamed over the target
// when the writer commits; a write that fails leaves the earlier file as it
// was and no temporary behind.
//
// Where the target is reached:
// - a symlink to a regular file: the file it points to is replaced, the
//   link stays;
// - an existing target that is not a regular file (a device such as
//   /dev/full, a pipe, a dangling link): written directly, since renaming
//   over it would silently swap the special file for a plain one; its
//   errors are reported all the same;
// - a folder: refused ("is a directory").
//
// Errors read "<target>: cannot write: <reason>".
#include <string>

class TatomicFile {
public:
    explicit TatomicFile(std::string target);
    ~TatomicFile();  // discards what was not committed
    TatomicFile(const TatomicFile&) = delete;
    TatomicFile& operator=(const TatomicFile&) = delete;

    // Creates the file to write; false with `error` set, and errorCode()
    // the system's reason.
    bool open(std::string& error);
    int errorCode() const { return fErrorCode; }
    // Where the writer writes: the temporary, or the target itself when it
    // is written directly. Valid after open.
    const std::string& path() const { return fWritePath; }
    // A descriptor open for writing on path(), owned by this object.
    int descriptor() const { return fDescriptor; }
    const std::string& target() const { return fTarget; }

    // Makes the data durable and puts the file in place; false with
    // `error` set, the earlier file untouched and the temporary removed.
    bool commit(std::string& error);
    // Throws the new data away (the temporary is removed).
    void discard();

    // The standard error text for `target` with the reason of errno `code`.
    static std::string errorText(const std::string& target, int code);

private:
    std::string fTarget;
    std::string fFinalPath;  // the target with its links resolved
    std::string fWritePath;
    int fDescriptor = -1;
    bool fDirect = false;
    int fErrorCode = 0;
};
