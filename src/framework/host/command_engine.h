#pragma once
// TcommandEngine: how the library talks to the user. Messages are either
// plain text or a catalogue key ("s_TrenderSwapStrings.rSwapFull") whose
// English text is registered by the code that owns it. Output goes to
// stderr unless a sink is installed (tests capture messages that way).
// executeCommand runs the few host commands the library issues, each
// registered by name.
#include <functional>
#include <initializer_list>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "framework/host/tstring.h"

// A catalogue key. Its text may hold ^1s, ^2s ... for arguments.
struct TstringId {
    const char* key;
};

// Registers the English text of a catalogue key at load time:
//   static const TcatalogueEntry kSwapFull{"s_TrenderSwapStrings.rSwapFull", "..."};
struct TcatalogueEntry {
    TcatalogueEntry(const char* key, const char* text);
    TstringId id() const { return {fKey}; }
    operator TstringId() const { return id(); }
    const char* fKey;
};

enum class TmessageSeverity { kInfo, kWarning, kError };

struct TcommandMessage {
    TmessageSeverity severity;
    std::string key;  // catalogue key, empty for plain text
    std::string text;
};

struct TscriptCmdResult {
    bool ok = false;
    std::string value;
};

class TcommandEngine {
public:
    using Sink = std::function<void(const TcommandMessage&)>;
    using Command = std::function<TscriptCmdResult(const std::vector<std::string>& args)>;

    void displayInfo(const Tstring& text) { post(TmessageSeverity::kInfo, {}, text.str()); }
    void displayWarning(const Tstring& text) { post(TmessageSeverity::kWarning, {}, text.str()); }
    void displayError(const Tstring& text) { post(TmessageSeverity::kError, {}, text.str()); }
    void displayInfo(TstringId id, std::initializer_list<Tstring> args = {});
    void displayWarning(TstringId id, std::initializer_list<Tstring> args = {});
    void displayError(TstringId id, std::initializer_list<Tstring> args = {});

    // The English text of a key with its arguments put in.
    static std::string format(TstringId id, std::initializer_list<Tstring> args = {});
    static bool hasCatalogueText(const char* key);

    // Replaces the output; returns the previous sink. An empty sink restores stderr.
    Sink setSink(Sink sink);

    void registerCommand(const std::string& name, Command command);
    // The command line is split at blanks; the first word names the command.
    bool executeCommand(const Tstring& commandLine);
    bool executeCommandWithResult(const Tstring& commandLine, TscriptCmdResult& result);

private:
    void post(TmessageSeverity severity, std::string key, std::string text);

    std::mutex fMutex;
    Sink fSink;
    std::unordered_map<std::string, Command> fCommands;
};

TcommandEngine& theCommandEngine();

// Captures every message while it lives; for tests and for tools that
// report messages their own way.
class TcommandCapture {
public:
    TcommandCapture();
    ~TcommandCapture();
    const std::vector<TcommandMessage>& messages() const { return fMessages; }
    unsigned count(TmessageSeverity severity) const;
    unsigned countKey(const char* key) const;

private:
    std::vector<TcommandMessage> fMessages;
    std::mutex fMutex;
    TcommandEngine::Sink fPrevious;
};
