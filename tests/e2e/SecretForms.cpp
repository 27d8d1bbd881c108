#include "tests/e2e/SecretForms.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "QVROAuth2Client/QVROAuth2Base64URL.h"

namespace e2e {

namespace {

std::string replaced(std::string text, char what, const std::string& by) {
  for (std::size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + by.size()))
    text.replace(at, 1, by);
  return text;
}

std::string base64URL(const std::string& text) {
  return qvr_base64URLEncodedStringNoPadding(qvr::Data(text.begin(), text.end()));
}

// The characters that are the same whatever stands before and behind the secret, of which so many
// bytes (modulo 3) precede it.
std::string base64URLInside(const std::string& text, std::size_t bytesBefore) {
  const std::string encoded = base64URL(std::string(bytesBefore, 'x') + text);
  const std::size_t start = (bytesBefore * 8 + 5) / 6;
  const std::size_t end = (bytesBefore + text.size()) * 8 / 6;
  return encoded.substr(start, end - start);
}

std::string hex(const std::string& text, const char* digits) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    result += {digits[byte >> 4], digits[byte & 15]};
  }
  return result;
}

int digitValue(char c) {
  if (std::isdigit(static_cast<unsigned char>(c)) != 0) return c - '0';
  const int letter = std::tolower(static_cast<unsigned char>(c));
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

// A "%" that begins no escape stays.
std::string percentDecoded(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? digitValue(text[i + 1]) : -1;
    const int low = high >= 0 ? digitValue(text[i + 2]) : -1;
    if (low >= 0) i += 2;
    result += low >= 0 ? static_cast<char>(high * 16 + low) : text[i];
  }
  return result;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> formsOf(const std::string& text) {
  std::vector<std::pair<std::string, std::string>> forms = {
      {"raw", text},
      {"form", replaced(text, ' ', "+")},
      {"JSON", replaced(text, '/', "\\/")},
      {"hex", hex(text, "0123456789abcdef")},
      {"HEX", hex(text, "0123456789ABCDEF")},
  };
  for (std::size_t before = 0; before < 3; ++before) {
    const std::string encoded = base64URLInside(text, before);
    forms.emplace_back("base64url", encoded);
    forms.emplace_back("base64", replaced(replaced(encoded, '-', "+"), '_', "/"));
  }
  return forms;
}

void SecretForms::add(const Secret& secret) {
  if (secret.text.size() < kWindow)
    throw std::invalid_argument("too short to be searched for: a secret of kind " + secret.kind);
  for (const auto& [name, form] : formsOf(secret.text)) {
    for (std::size_t at = 0; at + kWindow <= form.size(); ++at)
      windows_.try_emplace(form.substr(at, kWindow), Origin{secret.kind, name});
  }
}

void SecretForms::ignore(const std::string& text) {
  for (const auto& [name, form] : formsOf(text)) {
    for (std::size_t at = 0; at + kWindow <= form.size(); ++at)
      windows_.erase(form.substr(at, kWindow));
  }
}

void SecretForms::search(std::string_view text, std::vector<Find>& finds) const {
  std::string window;
  for (std::size_t at = 0; at + kWindow <= text.size(); ++at) {
    window.assign(text, at, kWindow);
    const auto found = windows_.find(window);
    if (found == windows_.end()) continue;
    const Origin& origin = found->second;
    const bool isKnown = std::any_of(finds.begin(), finds.end(), [&origin](const Find& find) {
      return find.kind == origin.kind && find.form == origin.form;
    });
    if (!isKnown) finds.push_back({origin.kind, origin.form, at});
  }
}

std::vector<SecretForms::Find> SecretForms::findIn(std::string_view text) const {
  std::vector<Find> finds;
  search(text, finds);
  std::string decoded(text);
  for (int times = 0; times < 2 && decoded.find('%') != std::string::npos; ++times) {
    decoded = percentDecoded(decoded);
    search(decoded, finds);
  }
  return finds;
}

}  // namespace e2e
