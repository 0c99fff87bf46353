#pragma once

#include <string>
#include <vector>

#include "backend/base/value.h"
#include "backend/collaborators/journal.h"

namespace weir {

/// Who is told of what.
struct Webhook {
  std::string url;
  std::vector<JournalKind> kinds = {};  ///< empty: all but "status" and "launched", which others contain
  std::vector<Cause> causes = {};       ///< empty: any, or none
  std::string secret = {};              ///< empty: what is sent is not signed

  bool wants(const JournalEntry& entry) const;
};

/// Reads a form with "url", "kinds", "causes" and "secret". Members that are absent stay as they are in `webhook`.
/// Throws `ValueError` that names the member, the value and what is expected.
Webhook read_webhook(const Value& form, Webhook webhook = {});

/// Puts the URL of `webhook` into a form that has it as it is shown, with its secrets masked. Throws `ValueError` for
/// another URL with a masked secret.
void restore_url(Value& form, const Webhook& webhook);

/// The form of a webhook; with its secret, or with "signed" in its place and the URL's secrets masked.
Value to_form(const Webhook& webhook, bool with_secret);

/// What is sent in X-Weir-Signature: "sha256=" and in hexadecimal digits the HMAC-SHA256 of the timestamp, "." and
/// the body.
std::string sign(const std::string& secret, const std::string& timestamp, const std::string& body);

}  // namespace weir
