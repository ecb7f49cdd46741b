#include "setd/scrubber_rules.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iterator>

#include "base/glib_handle.h"
#include "setd/placeholder_kinds.h"
#include "setd/setd_log.h"

namespace setd {

namespace {

// ---- what is private

bool Always(const std::string&) {
  return true;
}

bool HasAny(const std::string& value, int (*is)(int)) {
  return std::any_of(value.begin(), value.end(), [is](unsigned char c) { return is(c) != 0; });
}

/// Whether the value is one of the words, whatever its case and what ends a sentence behind it.
template <size_t N>
bool IsOneOf(const char* const (&words)[N], std::string value) {
  value.resize(value.find_last_not_of(".,:;!?)") + 1);
  std::transform(value.begin(), value.end(), value.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::find(std::begin(words), std::end(words), value) != std::end(words);
}

bool HasContent(const std::string& value) {
  return std::any_of(value.begin(), value.end(), [](unsigned char c) { return std::isalnum(c) || c >= 0x80; });
}

/// What an assignment gives a password, unless that says that there is none.
bool IsAssigned(const std::string& value) {
  constexpr const char* kWords[] = {"false", "nil", "no", "none", "null", "off", "on", "true", "yes"};
  return HasContent(value) && !IsOneOf(kWords, value);
}

/// What follows the name of a password in a sentence, unless that is about it.
bool IsToldInSentence(const std::string& value) {
  constexpr const char* kWords[] = {
      "a",          "absent",   "accepted", "active",   "again",    "all",      "already",  "also",      "always",
      "an",         "and",      "any",      "are",      "as",       "asked",    "at",       "bad",       "be",
      "been",       "being",    "blank",    "blocked",  "but",      "by",       "cached",   "changed",   "checked",
      "cleared",    "correct",  "created",  "default",  "deleted",  "denied",   "detected", "disabled",  "empty",
      "enabled",    "entered",  "expired",  "failed",   "fine",     "for",      "found",    "from",      "given",
      "good",       "granted",  "has",      "hidden",   "high",     "if",       "ignored",  "in",        "incorrect",
      "invalid",    "is",       "it",       "kept",     "known",    "locked",   "long",     "low",       "malformed",
      "may",        "missing",  "must",     "needed",   "needs",    "never",    "new",      "no",        "none",
      "not",        "now",      "null",     "of",       "off",      "ok",       "okay",     "old",       "on",
      "only",       "optional", "or",       "out",      "present",  "provided", "read",     "ready",     "received",
      "refused",    "rejected", "removed",  "required", "requires", "reset",    "right",    "same",      "saved",
      "sent",       "set",      "short",    "shown",    "still",    "stored",   "strong",   "succeeded", "success",
      "successful", "such",     "than",     "that",     "the",      "there",    "this",     "to",        "too",
      "unchanged",  "unknown",  "unset",    "unused",   "updated",  "used",     "valid",    "verified",  "was",
      "weak",       "when",     "will",     "with",     "without",  "wrong",    "yes",      "you",       "your"};
  return HasContent(value) && !IsOneOf(kWords, value);
}

/// What is made up rather than a word: letters and digits, eight bytes or more.
bool IsMadeUp(const std::string& value) {
  return value.size() >= 8 && HasAny(value, std::isdigit) && HasAny(value, std::isalpha);
}

/// What a sentence says to be done with a password, unless the password is a part of another thing's name.
bool IsGivenInSentence(const std::string& value) {
  constexpr const char* kWords[] = {
      "attempt",      "attempts", "auth",     "authentication", "based",     "cache",      "caching",    "change",
      "characters",   "check",    "checking", "constraints",    "count",     "counter",    "derived",    "dialog",
      "encryption",   "entry",    "error",    "errors",         "expiry",    "failure",    "failures",   "feature",
      "field",        "file",     "files",    "format",         "hash",      "hashes",     "hashing",    "input",
      "length",       "less",     "limit",    "login",          "logins",    "manager",    "message",    "method",
      "mode",         "page",     "policy",   "prompt",         "protected", "protection", "quality",    "recovery",
      "request",      "reset",    "retries",  "retry",          "screen",    "server",     "storage",    "store",
      "string",       "struct",   "support",  "type",           "types",     "update",     "validation", "value",
      "verification", "warning"};
  return IsToldInSentence(value) && !IsOneOf(kWords, value);
}

/// What stands right behind the name of a password, unless it is about its kind.
bool IsToldBehindName(const std::string& value) {
  constexpr const char* kWords[] = {"104-bit", "128-bit", "256-bit", "sha-256", "sha-512"};
  const bool isNumber = value.size() >= 4 && value.find_first_not_of("0123456789") == value.npos;
  const bool isMixed = value.size() >= 7 && HasAny(value, std::isdigit) && HasAny(value, std::isalpha);
  return (isNumber || isMixed) && !IsOneOf(kWords, value);
}

/// What is made up behind the name of any secret: no path, no address of a page, no way to encrypt.
bool IsMadeUpBehindName(const std::string& value) {
  static const RegexHandle& other =
      *new RegexHandle(CompilePattern("(?i)^(?:/|aes|sha|hmac|rsa|ecdsa|ed25519|chacha|wpa|tls)|://"));
  return IsMadeUp(value) && !g_regex_match(other.get(), value.c_str(), G_REGEX_MATCH_DEFAULT, nullptr);
}

/// What stands in the line below the name of a password.
bool IsToldBelow(const std::string& value) {
  return IsAssigned(value) && IsToldInSentence(value);
}

/// Behind "-p" and "-u": no path, no port, process or id, no level of a log.
bool IsPasswordOption(const std::string& value) {
  constexpr const char* kWords[] = {"alert", "crit", "debug", "emerg",  "err",  "error",
                                    "info",  "tcp",  "udp",   "notice", "warn", "warning"};
  const bool isNumber = value.size() <= 7 && value.find_first_not_of("0123456789:,-") == value.npos;
  return std::string("/.~$").find(value[0]) == std::string::npos && !isNumber && !IsOneOf(kWords, value) &&
         IsToldInSentence(value);
}

/// A name where a text has one: no time that a user's processes took, no word of a sentence.
bool IsPrivateUser(const std::string& value) {
  constexpr const char* kWords[] = {"action",  "activity", "agent",       "data",    "event",     "events",
                                    "id",      "input",    "interaction", "manager", "interface", "mode",
                                    "name",    "names",    "request",     "service", "requests",  "session",
                                    "setting", "sessions", "settings",    "slice",   "space",     "system"};
  return !IsCommonUser(value) && !std::isdigit(static_cast<unsigned char>(value[0])) && !IsOneOf(kWords, value) &&
         IsToldInSentence(value);
}

/// Not an instance of a unit, "getty@tty1.service", nor a picture for a scale, "icon@2x.png".
bool IsMailAddress(const std::string& value) {
  constexpr const char* kEndings[] = {"automount", "conf",   "cpp",  "device", "html",  "jpg",     "json",
                                      "log",       "mount",  "path", "png",    "scope", "service", "slice",
                                      "svg",       "socket", "swap", "target", "timer", "txt",     "xml"};
  const std::string ending = value.substr(value.rfind('.') + 1);
  return !std::isdigit(static_cast<unsigned char>(ending[0])) && !IsOneOf(kEndings, ending);
}

/// The shared part of the set's one user is the platform's own; all else below a home is somebody's.
bool IsPrivatePath(const std::string& value) {
  return !value.starts_with("/home/owner/share/") && !value.starts_with("/opt/usr/home/owner/share/") &&
         !value.starts_with("/opt/usr/home/owner/.cache/Apps/");
}

/// Not the kind of serial ports.
bool IsSerialNumber(const std::string& value) {
  return !value.starts_with("8250");
}

/// Without separators, what has no letter is a number.
bool IsHardwareAddress(const std::string& value) {
  return HasAny(value, std::isalpha);
}

/// An address, and not this machine itself. Two words with "::" between them are a name in a program.
bool IsPrivateAddress6(const std::string& value) {
  std::string plain;
  for (size_t i = 0; i < value.size(); ++i) {
    plain += value[i] == '%' ? ':' : value[i];
    if (value[i] == '%') i += 2;
  }
  in6_addr bytes;
  const bool isName = !HasAny(plain, std::isdigit) && std::count(plain.begin(), plain.end(), ':') < 3;
  return inet_pton(AF_INET6, plain.c_str(), &bytes) == 1 && plain != "::" && plain != "::1" && !isName;
}

/// An address, also with zeros before its numbers or in a name, and not this machine itself.
bool IsPrivateAddress4(const std::string& value) {
  int bytes[4] = {};
  std::sscanf(value.c_str(), "%3d%*1[.-]%3d%*1[.-]%3d%*1[.-]%3d", &bytes[0], &bytes[1], &bytes[2], &bytes[3]);
  const bool isAddress = std::all_of(std::begin(bytes), std::end(bytes), [](int byte) { return byte <= 255; });
  return isAddress && bytes[0] != 127 && (bytes[0] | bytes[1] | bytes[2] | bytes[3]) != 0;
}

// ---- where it is
//
// What repeats without a limit is possessive or ends at a byte of its own, and what is tried at each place is short: so
// no text takes long. "Behind" is where a value can begin: not within a word, but behind an escaped byte of a URL.

const std::string kBehind = "(?:(?<![0-9a-z])|(?<=%[0-9a-f]{2}))";

// The names of what people type; a value can stand behind them without more.
const std::string kTypedName =
    "(?:pass[ _-]?wo?r?d|passwort|kennwort|pass[ _-]?(?:phrase|code)|mot de passe|contrase(?:\xc3\xb1|n)a|"
    "(?<![a-z])senha)";
// The names of secrets that are such at the end of a longer word, too, and those that are words.
const std::string kLongName = "(?:" + kTypedName +
                              "|secret(?:[ _-]?key)?|token|credential|"
                              "api[ _-]?key|access[_-]?key|private[_-]?key|"
                              "(?:encryption|network|security|shared|wep|wpa)[ _-]?key|session[_-]?(?:id|key))"
                              "(?:\\d{1,2}|[_-]\\w{1,16}|(?-i:[A-Z]\\w{0,16}))?";
const std::string kShortName =
    "(?:(?<![a-z0-9])|(?-i:(?<=[a-z])(?=[A-Z])))(?:pass|pwd|pin(?:[ _-]?code)?|psk|pw|otp)\\d?(?![a-z0-9])";
const std::string kName = "(?:" + kLongName + "|" + kShortName + ")";
const std::string kKeyName = "(?:" + kTypedName + "|psk|(?:network|shared|wep|wpa)[ _-]?key)";
const std::string kNoPlaceholder = "(?!<" + PlaceholderKindsPattern() + R"(-\d{1,9}>))";
// Between a name and its value: the end of a quotation, a remark, and '=' or ':' in the forms that they have.
const std::string kAssign = R"([\\"']{0,8}+(?:\h|\xc2\xa0|\xe2\x80\xaf)*+(?:\([\w\h-]{1,20}+\)\h*+)?)"
                            R"((?::=|=>|->|[:=]|%(?:22%)?3[ad](?:%22)?+)\h*+)" +
                            kNoPlaceholder + R"([<\[(]?+)" + kNoPlaceholder;
// A value: what is in quotes, which are escaped in a JSON text within another; else what is before a space, or before
// what ends it or begins the next name.
const std::string kValue =
    R"((?:\\++(?:["']|u0022)(?<v>[^"'\\\n]++)|"(?<v>(?:[^"\\\n]++|\\[^\n])++)|'(?<v>[^'\n]++)|)"
    R"((?<v>[^\s"',;&<>\\)}\]]++(?:(?:["',;&<>)}\]]|\\(?![nrt]))(?=[^\s"',;&<>\\)}\]])(?![\w.-]{1,40}+["']?\h?[=:]))"
    R"([^\s"',;&<>\\)}\]]++)*+)))";
// The end of a line, also of one in a text of JSON.
const std::string kLineEnd = R"((?:\r?\n|(?:\\{1,4}r)?\\{1,4}n))";
// What begins the next name rather than being a value.
const std::string kNoName = R"((?![\w.-]{1,40}+["']?\h?[=:]|\{))";
// What is before the value of an option, also in a list of arguments and in that of a process.
const std::string kOption = R"([\\"']{0,8}+(?:,\h*+|[\h\x00]++)(?!\\{0,4}["']?-))";
// What a password was is told behind it.
const std::string kChangedFrom = "(?:" + kName +
                                 R"((?:\h\w{1,12}+){0,3}?\h(?:changed|updated|switched|set|reset)|)"
                                 R"(\b(?:chang|updat|switch|set|reset)\w{0,5}+\h(?:\w{1,12}+\h){0,2})" +
                                 kName + R"()\hfrom\h)";
// What a name and a value are members of: an object of JSON or an element of XML.
const std::string kWithinElement = "[^{}<>]{0,80}?(?<![a-z0-9])";
const std::string kMember = R"([\\"']{0,8}+\s*+[:=]\s*+)";
// Options that take USER:PASSWORD.
const std::string kUserOption = R"((?<![\w-])(?:-u|--user|--proxy-user)[\\"']{0,8}+,?[\h=\x00]++[\\"']{0,8}+)";

struct Pattern {
  const char* kind;
  std::string text;
  bool (*isPrivate)(const std::string&);
  bool isName = false;
};

std::vector<Pattern> PasswordPatterns() {
  return {
      {"secret", "(?i)authorization" + kAssign + R"([\\"']{0,8}+[\w-]{1,24}\h++(?<v>\w{1,24}=(?:[^\\\n]++|\\(?!n))++))",
       Always},
      {"secret",
       "(?i)authorization" + kAssign +
           R"([\\"']{0,8}+(?:(?:bearer|basic|negotiate|ntlm|oauth|token|api-?key)\h++)?+(?!<|[\w-]{1,24}\h++<)(?<v>[^\s"',;<>\\]++))",
       IsToldInSentence},
      {"secret", R"((?i)(?<![a-z0-9])bearer)" + kAssign + R"((?!["']?/))" + kValue, IsMadeUp},
      {"secret", R"((?i)(?<![a-z0-9])(?:bearer|basic)\h++(?<v>[\w.~+/-]{8,}+=*+))", IsMadeUp},
      {"secret", R"((?i)(?<![a-z0-9])(?:set-)?cookie[\\"']{0,8}+:\h*+[\\"']{0,8}+(?<v>[^"'\\\n]++))", Always},
      {"secret", R"((?<!\w)eyJ[\w-]{8,}+\.[\w-]{8,}+(?:\.[\w-]++)?)", Always},
      {"secret",
       "(?i)" + kBehind + R"((?-i:gh[opsru]_\w{20,}+|glpat-[\w-]{16,}+|xox[a-z]-[\w-]{10,}+|AKIA[0-9A-Z]{16}(?!\w)))",
       Always},
      {"secret", "PRIVATE KEY-----" + kNoPlaceholder + "(?<v>[^-]++)", Always},
      {"secret", R"(://[^\s/:@"'<>]{0,256}+:(?!<)(?<v>[^\s/"'<>]{1,256})@)", Always},
      {"user", R"(://(?<v>[^\s/:@"'<>]{1,256}+)(?::<secret-\d++>)?@)", IsPrivateUser},
      {"secret", R"((?i)[?&;](?:code|key|sig|signature|auth|sid|session|ticket|jwt)=(?!<)(?<v>[^\s&;#"'<>\\]++))",
       Always},
      {"secret", R"((?i)credentials?)" + kAssign + R"([a-z_][\w.@+-]{0,63}+\h*+[/|,:]\h*+)" + kValue, IsToldBelow},
      {"user", R"((?i)credentials?)" + kAssign + R"((?<v>[a-z_][\w.@+-]{0,63}+)\h*+[/|,:]\h*+<secret-)", IsPrivateUser},
      {"secret", "(?i)" + kName + kAssign + kValue, IsAssigned},
      {"secret", R"((?i)<(?:[a-z]{1,16}:)?(?!secret-\d))" + kName + R"((?:\h[^<>\n]{0,80})?(?<!/)>(?<v>[^<\n]++))",
       IsAssigned},
      {"secret",
       "(?i)(?:<(?:[a-z]{1,16}:)?" + kName + R"(\b|)" + kName + R"([\\"']{1,8}+(?:\s*+[:=]\s*+[\[{]++|(?!\s*+[:=]))))" +
           kWithinElement + "(?:value|val|content|data)" + kMember + kNoPlaceholder + kValue,
       IsAssigned},
      {"secret",
       "(?i)(?<![a-z0-9])(?:value|val|content|data)" + kMember +
           R"([\\"']{1,8}+(?<v>[^"'\\<>\n]{1,256}+)[\\"']{1,8}+)" + kWithinElement + "(?:name|key|id|type)" + kMember +
           R"([\\"']{0,8}+[\w.-]{0,32}?)" + kName + R"([\\"'])",
       IsAssigned},
      {"secret", R"((?i)(?<![\w-])--?[a-z-]{0,24}?)" + kName + kOption + kValue, IsToldInSentence},
      {"secret",
       R"((?i)(?<![a-z0-9])(?:sshpass|mysql\w{0,16}|mariadb(?:-\w{1,16}+)?|mongo\w{0,16}|7z[ar]?|(?:un)?rar)[\\"']{0,8}+[,\h\x00][^\n|;&]{0,200}?(?<![\w-])(?-i:-p)\h*+)" +
           kNoPlaceholder + kValue,
       IsToldInSentence},
      {"secret", R"((?<![\w-])-p)" + kOption + kValue, IsPasswordOption},
      {"secret", kUserOption + R"([^\s:"']{1,64}+:(?!<)(?<v>[^\s"'\\]++))", IsPasswordOption},
      {"user", kUserOption + R"((?<v>[^\s:"']{1,64}+):<secret-)", IsPrivateUser},
      {"secret",
       "(?i)" + kName +
           R"((?:\h(?:for|of|to|on|from)\h[^\n:=]{1,60}?)?\h(?:(?:(?:is|was|been)\h)?(?:set|changed)\hto|is|was)(?:\hnow)?:?\h)" +
           kValue,
       IsToldInSentence},
      {"secret", R"((?i)\b(?:set|change|changed)\h(?:the\h)?)" + kName + R"(\hto\h)" + kValue, IsToldInSentence},
      {"secret",
       "(?i)" + kName + R"(\h(?:for|of|to|on|from|at)\h[^\n:=]{1,60}?[:=]\h*+)" + kNoPlaceholder +
           R"((?:(?=\S{0,64}?\d)(?=\S{0,64}?[a-z])|(?=\S++\h*+(?:\n|\z))))" + kValue,
       IsToldInSentence},
      {"secret",
       R"((?i)\b(?:with|using)\h(?:(?:an?|its|the|this|network|user|wi-?fi|wireless|wlan)\h){0,2})" + kTypedName +
           R"(\h)" + kValue,
       IsGivenInSentence},
      {"secret",
       R"((?i)\b(?:wrong|bad|invalid|incorrect)\h)" + kTypedName + R"(\h)" + kNoPlaceholder + kValue +
           R"((?=["'.!]?(?:\s*+\z|[\n"'),;\]}\\]|\h(?:for|from|by|at|on|in|was|is)\b)))",
       IsGivenInSentence},
      {"secret",
       "(?i)(?:" + kTypedName + R"(|psk)\h++[\\"']++)" + kNoPlaceholder + R"((?<v>[^"'\\\n]{1,128}+)(?=[\\"']))",
       IsGivenInSentence},
      {"secret",
       "(?i)(?:" + kTypedName + R"(|(?<![a-z])psk)(?:\t|\h?\|\h?)(?!)" + kName +
           R"(|user|login|name|mail|key|public|keyboard|host)[\\"']{0,8}+)" + kNoPlaceholder +
           R"((?<v>[^\s|"'<>\\]++))",
       IsGivenInSentence},
      {"secret",
       "(?i)" + kChangedFrom + R"((?:"[^"\n]{1,64}+"|'[^'\n]{1,64}+'|\S{1,64}+)\hto\h)" + kNoPlaceholder + kValue,
       IsToldInSentence},
      {"secret", "(?i)" + kChangedFrom + kNoPlaceholder + kValue + R"((?=["']?\hto\h))", IsToldInSentence},
      {"secret", "(?i)" + kKeyName + R"((?:\h++|(?=[\[(]))[\[(]?+)" + kNoPlaceholder + kValue, IsToldBehindName},
      {"secret", "(?i)" + kLongName + R"((?:\h++|(?=[\[(]))[\[(]?+(?![\w.-]{1,40}+=["'\w]))" + kNoPlaceholder + kValue,
       IsMadeUpBehindName},
      {"secret", R"((?i)(?<![a-z0-9])pin(?:[ _-]?code)?(?:\h++|(?=\())\(?+(?<v>\d{4,8})(?!\w|[.:-]\d))", Always},
      {"secret",
       "(?i)" + kName + R"([\\"']{0,8}+\h*+[:=]\h*+)" + kLineEnd + R"((?:\h++)" + kNoName + kValue + "|" + kNoName +
           R"((?<v>[^\s"'\\<]++)(?=\h*+(?:\z|["']|)" + kLineEnd + ")))",
       IsToldBelow},
      // A wireless key, but no checksum that the text calls so: that is gone over.
      {"secret",
       R"((?i)(?:(?<![a-z])(?:sha-?256(?:sum)?|checksum|digest|commit)(?![a-z])(?:(?!key|psk|pass)[^\n]){0,48}?)"
       R"(\b[0-9a-f]{64}\b(*SKIP)(*F)|\b[0-9a-f]{64}\b))",
       Always},
  };
}

std::vector<Pattern> PersonPatterns() {
  return {
      {"user",
       R"((?i)(?:\b|_)(?:user(?:[_-]?name)?|login|account)[\\"']{0,8}+(?:=|:\h?)[\\"']{0,8}+(?<v>[^\s"',;&<>\\:()\[\]{}]++))",
       IsPrivateUser},
      {"user",
       R"((?i)\b(?:(?:for|by|of|as|from|invalid) user\h|(?:accepted|failed) [\w-]{1,24} for (?:invalid user )?|[ug]id=\d{1,10}\()["']?(?<v>[a-z_][\w-]*+(?:\.[\w-]++)*+))",
       IsPrivateUser},
      {"mail", R"~((?i)(?<!\w)"[^"@\n\\]{1,64}+"@[a-z0-9\x80-\xff-]{1,64}+(?:\.[a-z0-9\x80-\xff-]{1,64}+){1,8}+)~",
       IsMailAddress},
      {"mail",
       R"((?i)(?:(?<![\w.+\x80-\xff-])(?!(?<=%)[0-9a-f]{2})|(?<=%[0-9a-f]{2}))(?:[\w.+\x80-\xff-]|%2b){1,256}+(?:@|%(?:25){0,2}40|\h?[(\[]at[)\]]\h?)[a-z0-9\x80-\xff-]{1,64}+(?:\.[a-z0-9\x80-\xff-]{1,64}+){1,8}+)",
       IsMailAddress},
      {"phone", R"((?<![\w+])\+(?:[1-9]\d{9,14}|[1-9]\d{0,2}[\h(-]{1,2}\d(?:[\h()/-]{0,2}\d){6,12})(?!\d|[.:]\d))",
       Always},
      {"path",
       R"~((?:/opt/usr|/var)?/home/[^\s"'<>|:,;)\]}]+|/(?:run/)?media/[^\s"'<>|:,;)\]}]+|(?<![\w/])/root/[^\s"'<>|:,;)\]}]+)~",
       IsPrivatePath},
  };
}

std::vector<Pattern> DevicePatterns() {
  return {
      {"ssid", R"((?i)\bwifi_[0-9a-f]{12}_[0-9a-f]{0,64}+_[a-z]{1,16}_[a-z0-9]{1,16})", Always},
      {"ssid", R"~((?i)\b(?:network|access point|ap|connection)\h++(?:"(?<v>[^"\n]{1,128}+)"|'(?<v>[^'\n]{1,128}+)'))~",
       Always, true},
      {"ssid",
       R"~((?i)(?:\b|_)e?ssid(?:[\\"']{0,8}+\h*+[:=]\h*+(?:\\{0,4}+"(?<v>[^"\n]{1,128}?)\\{0,4}"|'(?<v>[^'\n]{1,128}+)'|(?<v>(?:[^"',;{}<>\n\\]|\\(?!n)|(?<=\w)'(?=\w)){1,128}+))|\h++(?:is\h++)?(?:"(?<v>[^"\n]{1,128}+)"|'(?<v>[^'\n]{1,128}+)')))~",
       Always, true},
      {"ssid",
       R"~((?i)(?<![a-z0-9])e?ssid[\\"']{1,8}+(?:\s*+[:=]\s*+\{\s*+|(?!\s*+[:=])))~" + kWithinElement +
           "(?:value|val|content|data)" + kMember + R"~(\\{0,4}+"(?<v>[^"<\n]{1,128}?)\\{0,4}")~",
       Always, true},
      {"serial",
       R"~((?i)(?:\b|_)(?:serial[ _-]?(?:number|no\.?|nr\.?|num)?|s/n|sn)[\\"']{0,8}+(?:\h*+(?:[:=>]|is\b)\h*+|\h++)[\\"']{0,8}+(?<v>(?=[^\s"',;<>\\]{0,63}\d)[^\s"',;<>\\]{4,64}+))~",
       IsSerialNumber, true},
      {"id", "(?i)" + kBehind + "[0-9a-f]{8}-?(?:[0-9a-f]{4}-?){3}[0-9a-f]{12}(?![0-9a-z])", Always},
      {"mac", "(?i)" + kBehind + "(?:[0-9a-f]{2}(?:[:_-]|%3a)){5,7}[0-9a-f]{2}(?![0-9a-z])", Always},
      // Six pairs, of which there are more in a row where a text shows bytes.
      {"mac",
       R"((?i)(?<![0-9a-z])(?<![^0-9a-z][0-9a-f]{2}\h)(?<!^[0-9a-f]{2}\h)(?:[0-9a-f]{2}\h){5}[0-9a-f]{2}(?![0-9a-z]|\h[0-9a-f]{2}(?![0-9a-z])))",
       IsHardwareAddress},
      {"mac", R"((?i)(?<![0-9a-z.])[0-9a-f]{4}\.[0-9a-f]{4}\.[0-9a-f]{4}(?![0-9a-z.]))", Always},
      {"mac", "(?i)(?<=enx|wlx)[0-9a-f]{12}(?![0-9a-z])", Always},
      {"mac", "(?i)" + kBehind + "[0-9a-f]{12}(?![0-9a-z])", IsHardwareAddress},
      {"ip",
       R"((?i)(?:(?<![0-9a-z.])|(?<=%[0-9a-f]{2}))(?:[0-9a-f]{0,4}(?::|%3a)){2,7}(?:(?:\d{1,3}\.){3}\d{1,3}|[0-9a-f]{1,4}|(?<=::)|(?<=%3a%3a))(?![0-9a-z]))",
       IsPrivateAddress6},
      {"ip", R"((?i)(?<![0-9a-z])(?:ip|host|dhcp|client|static|dynamic|pool)-(?<v>(?:\d{1,3}-){3}\d{1,3})(?![\w-]))",
       IsPrivateAddress4},
      {"ip", R"((?<![\d.])(?:\d{1,3}\.){3}\d{1,3}(?!\d|\.(?:1?\d{1,2}|2[0-4]\d|25[0-5])(?!\d)))", IsPrivateAddress4},
  };
}

}  // namespace

const std::string& PlaceholderKindsPattern() {
  static const std::string& pattern = *[] {
    auto* kinds = new std::string("(?:");
    for (const PlaceholderKind& each : kPlaceholderKinds) kinds->append(each.name).append("|");
    kinds->back() = ')';
    return kinds;
  }();
  return pattern;
}

bool IsCommonUser(const std::string& name) {
  constexpr const char* kUsers[] = {"owner", "root", "nobody", "user"};
  return std::find(std::begin(kUsers), std::end(kUsers), name) != std::end(kUsers);
}

bool IsPlaceholder(const std::string& value) {
  static const RegexHandle& regex = *new RegexHandle(CompilePattern("^<" + PlaceholderKindsPattern() + "-\\d++>$"));
  return g_regex_match(regex.get(), value.c_str(), G_REGEX_MATCH_DEFAULT, nullptr);
}

RegexHandle CompilePattern(const std::string& pattern) {
  GErrorHandle error;
  constexpr auto kFlags = static_cast<GRegexCompileFlags>(G_REGEX_RAW | G_REGEX_DUPNAMES | G_REGEX_OPTIMIZE);
  RegexHandle regex(g_regex_new(pattern.c_str(), kFlags, G_REGEX_MATCH_DEFAULT, error.Out()));
  // Neither the pattern nor the message, which has it: it can be of what is private.
  if (!regex) Log(DLOG_FATAL, "a pattern is none: error " + std::to_string(error.Get()->code));
  // The first match makes machine code of it, which threads that share it must not do at once.
  if (regex) g_regex_match(regex.get(), "", G_REGEX_MATCH_DEFAULT, nullptr);
  return regex;
}

const std::vector<ScrubRule>& ScrubRules() {
  static const std::vector<ScrubRule>& rules = *[] {
    auto* compiled = new std::vector<ScrubRule>;
    for (const auto& patterns : {PasswordPatterns(), PersonPatterns(), DevicePatterns()})
      for (const Pattern& each : patterns)
        compiled->push_back({each.kind, CompilePattern(each.text), each.isPrivate, each.isName});
    return compiled;
  }();
  return rules;
}

}  // namespace setd
