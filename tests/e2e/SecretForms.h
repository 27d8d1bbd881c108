// Finds secrets in what a program leaves behind, in whatever form it wrote them.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace e2e {

struct Secret {
  std::string kind;  // as named on the wire ("access_token"), or "passphrase", "key"
  std::string text;
};

// The ways to write a secret that are searched for, each by its name. Percent-encoding is none of
// them: it is undone in the searched text instead, so that no mixture of encodings hides anything.
std::vector<std::pair<std::string, std::string>> formsOf(const std::string& text);

class SecretForms {
 public:
  // So many characters of a form in a row are a find: a message that was cut, or had one end of a
  // token taken out, still tells too much.
  static constexpr std::size_t kWindow = 12;

  // A secret is searched for from now on; it has at least kWindow characters.
  void add(const Secret& secret);

  // A text that a secret holds and that is none by itself is no find: an ID token names the
  // account.
  void ignore(const std::string& text);

  struct Find {
    std::string kind;
    std::string form;
    std::size_t position;  // of the first one in the text, percent-decoded or not
  };

  // The first find of each kind and form in the text: as it is, percent-decoded, and decoded twice.
  std::vector<Find> findIn(std::string_view text) const;

 private:
  void search(std::string_view text, std::vector<Find>& finds) const;

  struct Origin {
    std::string kind;
    std::string form;
  };
  std::unordered_map<std::string, Origin> windows_;
};

}  // namespace e2e
