#include "framework/host/command_engine.h"

#include <cstdio>
#include <sstream>

namespace {
std::unordered_map<std::string, std::string>& catalogue() {
    static std::unordered_map<std::string, std::string> texts;
    return texts;
}
std::mutex& catalogueMutex() {
    static std::mutex m;
    return m;
}

const char* prefix(TmessageSeverity s) {
    switch (s) {
        case TmessageSeverity::kInfo: return "";
        case TmessageSeverity::kWarning: return "Warning: ";
        case TmessageSeverity::kError: return "Error: ";
    }
    return "";
}
}  // namespace

TcatalogueEntry::TcatalogueEntry(const char* key, const char* text) : fKey(key) {
    std::lock_guard lock(catalogueMutex());
    catalogue()[key] = text;
}

std::string TcommandEngine::format(TstringId id, std::initializer_list<Tstring> args) {
    std::string text;
    {
        std::lock_guard lock(catalogueMutex());
        auto it = catalogue().find(id.key);
        text = it != catalogue().end() ? it->second : std::string(id.key);
    }
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        // ^Ns names argument N (1-based).
        if (text[i] == '^' && i + 2 < text.size() && text[i + 1] >= '1' && text[i + 1] <= '9' && text[i + 2] == 's') {
            size_t n = size_t(text[i + 1] - '1');
            if (n < args.size()) out += (args.begin() + n)->str();
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

bool TcommandEngine::hasCatalogueText(const char* key) {
    std::lock_guard lock(catalogueMutex());
    return catalogue().count(key) != 0;
}

void TcommandEngine::displayInfo(TstringId id, std::initializer_list<Tstring> args) {
    post(TmessageSeverity::kInfo, id.key, format(id, args));
}
void TcommandEngine::displayWarning(TstringId id, std::initializer_list<Tstring> args) {
    post(TmessageSeverity::kWarning, id.key, format(id, args));
}
void TcommandEngine::displayError(TstringId id, std::initializer_list<Tstring> args) {
    post(TmessageSeverity::kError, id.key, format(id, args));
}

void TcommandEngine::post(TmessageSeverity severity, std::string key, std::string text) {
    Sink sink;
    {
        std::lock_guard lock(fMutex);
        sink = fSink;
    }
    TcommandMessage message{severity, std::move(key), std::move(text)};
    if (sink) {
        sink(message);
        return;
    }
    std::fprintf(stderr, "%s%s\n", prefix(severity), message.text.c_str());
}

TcommandEngine::Sink TcommandEngine::setSink(Sink sink) {
    std::lock_guard lock(fMutex);
    std::swap(sink, fSink);
    return sink;
}

void TcommandEngine::registerCommand(const std::string& name, Command command) {
    std::lock_guard lock(fMutex);
    fCommands[name] = std::move(command);
}

bool TcommandEngine::executeCommandWithResult(const Tstring& commandLine, TscriptCmdResult& result) {
    std::istringstream in(commandLine.str());
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    if (words.empty()) return false;
    Command command;
    {
        std::lock_guard lock(fMutex);
        auto it = fCommands.find(words.front());
        if (it == fCommands.end()) {
            result = {};
            return false;
        }
        command = it->second;
    }
    words.erase(words.begin());
    result = command(words);
    return result.ok;
}

bool TcommandEngine::executeCommand(const Tstring& commandLine) {
    TscriptCmdResult ignored;
    return executeCommandWithResult(commandLine, ignored);
}

TcommandEngine& theCommandEngine() {
    static TcommandEngine engine;
    return engine;
}

TcommandCapture::TcommandCapture() {
    fPrevious = theCommandEngine().setSink([this](const TcommandMessage& m) {
        std::lock_guard lock(fMutex);
        fMessages.push_back(m);
    });
}

TcommandCapture::~TcommandCapture() { theCommandEngine().setSink(fPrevious); }

unsigned TcommandCapture::count(TmessageSeverity severity) const {
    unsigned n = 0;
    for (auto& m : fMessages) n += m.severity == severity;
    return n;
}

unsigned TcommandCapture::countKey(const char* key) const {
    unsigned n = 0;
    for (auto& m : fMessages) n += m.key == key;
    return n;
}
