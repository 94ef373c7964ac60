#include "commands/UTF8Words.h"

#include <utility>

#include "core/Tokenizer.h"

namespace {

// The word that is being read: a view for as long as it is in one piece.
class Word {
  public:
    explicit Word(std::deque<std::string>& itsStore) : store(itsStore) {}

    void Append(std::string_view piece) {
        if (text.empty()) {
            text = piece;
        } else if (!piece.empty()) {
            if (joined == nullptr) {
                joined = &store.emplace_back(text);
            }
            text = joined->append(piece);
        }
    }
    bool IsEmpty() const { return text.empty(); }
    std::string_view Take() {
        joined = nullptr;
        return std::exchange(text, std::string_view());
    }

  private:
    std::deque<std::string>& store;
    std::string* joined = nullptr;
    std::string_view text;
};

}  // namespace

UTF8Words::UTF8Words(const std::string& message) {
    Word word(joined);
    ForEachWord(std::string_view(message), word, [this, &word] { words.push_back(word.Take()); });
}
