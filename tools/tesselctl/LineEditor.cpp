#include "tesselctl/LineEditor.h"

#include <histedit.h>
#include <langinfo.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "tesselctl/Terminal.h"

namespace tesselctl {
namespace {

constexpr int kRemembered = 1000;

// The service reads UTF-8, so the terminal had better write it, whatever the environment says.
void UseUtf8() {
    // NOLINTBEGIN(cert-err33-c): without a locale the editor still edits plain letters
    std::setlocale(LC_CTYPE, "");
    if (std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) std::setlocale(LC_CTYPE, "C.UTF-8");
    // NOLINTEND(cert-err33-c)
}

std::string InColumns(const std::vector<std::string>& names) {
    constexpr std::size_t kWidth = 80;
    std::size_t longest = 0;
    for (const std::string& name : names)
        longest = std::max(longest, name.size());
    const std::size_t column = longest + 2;
    std::string text;
    std::size_t used = 0;
    for (const std::string& name : names) {
        if (used > 0 && used + column > kWidth) {
            text += '\n';
            used = 0;
        }
        text += name + std::string(column - name.size(), ' ');
        used += column;
    }
    return text + '\n';
}

}  // namespace

std::vector<std::string> NamesBeginning(const std::vector<std::string>& names,
                                        const std::string& beginning) {
    std::vector<std::string> found;
    for (const std::string& name : names)
        if (name.compare(0, beginning.size(), beginning) == 0) found.push_back(name);
    return found;
}

std::string CommonBeginning(const std::vector<std::string>& names) {
    if (names.empty()) return {};
    std::string common = names.front();
    for (const std::string& name : names) {
        const auto differ = std::mismatch(common.begin(), common.end(), name.begin(), name.end());
        common.erase(differ.first, common.end());
    }
    return common;
}

struct LineEditor::State {
    std::string prompt;
    std::vector<std::string> names;
    Signals& signals;
    std::function<std::vector<Watched>()> watched;
    EditLine* editor = nullptr;
    ::History* history = nullptr;
    bool editing = false;
    TypedKind ending = TypedKind::kEnd;  // why the last character did not come
    int endedBy = 0;

    static State& Of(EditLine* editor) {
        void* state = nullptr;
        el_get(editor, EL_CLIENTDATA, &state);
        return *static_cast<State*>(state);
    }

    static char* Prompt(EditLine* editor) { return Of(editor).prompt.data(); }
    static int ReadCharacter(EditLine* editor, wchar_t* character);
    static unsigned char Complete(EditLine* editor, int character);

    // Waits until a byte has been typed; false when a signal or the end of the input ends the line
    // instead.
    bool WaitForInput();
    bool TakeSignals();
    int ReadByte(char& byte);
};

// False when a signal ends the line.
bool LineEditor::State::TakeSignals() {
    while (const std::optional<int> signal = signals.Take()) {
        switch (*signal) {
            case SIGWINCH:
                el_resize(editor);
                break;
            case SIGCONT:
                // Whoever had the terminal meanwhile has set it up for himself.
                el_set(editor, EL_PREP_TERM, 0);
                el_set(editor, EL_PREP_TERM, 1);
                el_set(editor, EL_REFRESH);
                break;
            case SIGINT:
                ending = TypedKind::kDiscarded;
                return false;
            default:
                ending = TypedKind::kEnd;
                endedBy = *signal;
                return false;
        }
    }
    return true;
}

bool LineEditor::State::WaitForInput() {
    for (;;) {
        const std::vector<Watched> others = watched();
        std::vector<pollfd> polled = {{STDIN_FILENO, POLLIN, 0},
                                      {signals.PollDescriptor(), POLLIN, 0}};
        for (const Watched& other : others)
            polled.push_back({other.descriptor, POLLIN, 0});
        if (poll(polled.data(), static_cast<nfds_t>(polled.size()), -1) <= 0) continue;
        if (!TakeSignals()) return false;
        for (std::size_t i = 0; i < others.size(); i++)
            if (polled[i + 2].revents != 0) others[i].ready();
        if (polled[0].revents != 0) return true;
    }
}

// As read(2): 1, 0 at the end, -1.
int LineEditor::State::ReadByte(char& byte) {
    for (;;) {
        if (!WaitForInput()) return -1;
        const ssize_t got = read(STDIN_FILENO, &byte, 1);
        if (got >= 0) return static_cast<int>(got);
        if (errno != EINTR && errno != EAGAIN) return -1;
    }
}

int LineEditor::State::ReadCharacter(EditLine* editor, wchar_t* character) {
    State& state = Of(editor);
    state.ending = TypedKind::kEnd;
    std::mbstate_t partial{};
    for (;;) {
        char byte = 0;
        const int got = state.ReadByte(byte);
        if (got != 1) return got;
        const std::size_t length = std::mbrtowc(character, &byte, 1, &partial);
        if (length == 1 || length == 0) return 1;
        // What is no character is left out; the next byte may begin one.
        if (length == static_cast<std::size_t>(-1)) partial = {};
    }
}

unsigned char LineEditor::State::Complete(EditLine* editor, int character) {
    State& state = Of(editor);
    const LineInfo* line = el_line(editor);
    const std::string before(line->buffer, line->cursor);
    // Most arguments are paths.
    if (before.find(' ') != std::string::npos) return _el_fn_complete(editor, character);
    const std::vector<std::string> found = NamesBeginning(state.names, before);
    if (found.empty()) return CC_ERROR;
    std::string rest = CommonBeginning(found).substr(before.size());
    if (found.size() == 1) rest += ' ';
    if (!rest.empty()) return el_insertstr(editor, rest.c_str()) == -1 ? CC_ERROR : CC_REFRESH;
    Say('\n' + InColumns(found));
    return CC_REDISPLAY;
}

LineEditor::LineEditor(const std::string& prompt, std::vector<std::string> names, Signals& signals,
                       std::function<std::vector<Watched>()> watched)
    : state(new State{prompt, std::move(names), signals, std::move(watched)}) {
    UseUtf8();
    state->history = history_init();
    HistEvent event;
    history(state->history, &event, H_SETSIZE, kRemembered);
    history(state->history, &event, H_SETUNIQUE, 1);
    state->editor = el_init("tesselctl", stdin, stdout, stderr);
    if (state->editor == nullptr) return;
    EditLine* const editor = state->editor;
    el_set(editor, EL_CLIENTDATA, state.get());
    el_set(editor, EL_PROMPT, State::Prompt);
    el_set(editor, EL_EDITOR, "emacs");
    el_set(editor, EL_HIST, history, state->history);
    el_set(editor, EL_GETCFN, State::ReadCharacter);
    // The narrow form of this call makes copies that nobody frees.
    el_wset(editor, EL_ADDFN, L"complete", L"Completes a command or a file name", State::Complete);
    el_set(editor, EL_BIND, "^I", "complete", nullptr);
    el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    el_source(editor, nullptr);
}

LineEditor::~LineEditor() {
    if (state->editor != nullptr) el_end(state->editor);
    if (state->history != nullptr) history_end(state->history);
}

void LineEditor::Remember(const std::string& line) {
    HistEvent event;
    history(state->history, &event, H_ENTER, line.c_str());
}

Typed LineEditor::Read() {
    if (state->editor == nullptr) return {TypedKind::kEnd, {}};
    int length = 0;
    state->ending = TypedKind::kEnd;
    state->editing = true;
    // Before the prompt appears: what is typed from then on is meant for the editor.
    el_set(state->editor, EL_PREP_TERM, 1);
    const char* line = el_gets(state->editor, &length);
    state->editing = false;
    if (line == nullptr || length <= 0) {
        Say(state->ending == TypedKind::kDiscarded ? "^C\n" : "\n");
        return {state->ending, {}};
    }
    std::string text(line, static_cast<std::size_t>(length));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    return {TypedKind::kLine, std::move(text)};
}

void LineEditor::Interpose(const std::string& text) {
    if (!state->editing) {
        Say(text);
        return;
    }
    const char* terminal = std::getenv("TERM");
    const bool plain = terminal == nullptr || std::strcmp(terminal, "dumb") == 0;
    Say((plain ? "\n" : "\r\033[K") + text);
    el_set(state->editor, EL_REFRESH);
}

int LineEditor::EndedBy() const {
    return state->endedBy;
}

}  // namespace tesselctl
