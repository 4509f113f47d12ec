#include "probes/update_check.h"

#include <algorithm>
#include <array>
#include <exception>

#include "probes/version.h"
#include "report/console.h"
#include "report/log.h"
#include "win32/handle.h"
#include "win32/internet.h"

namespace {

constexpr char16_t kServer[] = QBC_UPDATE_HOST;
constexpr char16_t kContact[] = u"updates@velmora.example";

constexpr int kLatest = 0;
constexpr int kNewerExists = 1;
constexpr int kFailed = 2;

// The server knows this text as it stands: tabs and blanks, no line breaks. Nine tabs stand before each tag of the
// outer levels, the closing ones too; ten tabs and two blanks before each element of the product, and a blank behind
// each of these but the last. It calls itself utf-8 but goes out as UTF-16, as the header of the request says.
constexpr char16_t kRequest[] =
    u"<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
    u"\t\t\t\t\t\t\t\t\t<velmoraupdate version=\"1\">"
    u"\t\t\t\t\t\t\t\t\t<response>XML</response>"
    u"\t\t\t\t\t\t\t\t\t<testing>LIVE</testing>"
    u"\t\t\t\t\t\t\t\t\t<email>%ls</email>"
    u"\t\t\t\t\t\t\t\t\t<language>en</language>"
    u"\t\t\t\t\t\t\t\t\t<product>"
    u"\t\t\t\t\t\t\t\t\t\t  <productcode>QBS</productcode> "
    u"\t\t\t\t\t\t\t\t\t\t  <releasetype>Full</releasetype> "
    u"\t\t\t\t\t\t\t\t\t\t  <majorversion>%ls</majorversion> "
    u"\t\t\t\t\t\t\t\t\t\t  <minorversion>%ls</minorversion> "
    u"\t\t\t\t\t\t\t\t\t\t  <hotfixversion>%ls</hotfixversion> "
    u"\t\t\t\t\t\t\t\t\t\t  <build>%ls</build> "
    u"\t\t\t\t\t\t\t\t\t\t  <versionnumber>%ls</versionnumber> "
    u"\t\t\t\t\t\t\t\t\t\t  <daysremain>0</daysremain>"
    u"\t\t\t\t\t\t\t\t\t</product>"
    u"\t\t\t\t\t\t\t\t\t</velmoraupdate>";
constexpr char16_t kHeader[] = u"Content-Type: text/html; charset=utf-16";
constexpr win32::DWORD kEndsWithZero = 0xFFFFFFFF;

// Without NO_AUTO_REDIRECT the library would follow a redirection by itself and show the status of what it came to; a
// redirected check has failed.
constexpr win32::DWORD kRequestFlags = win32::INTERNET_FLAG_RELOAD | win32::INTERNET_FLAG_NO_CACHE_WRITE |
                                       win32::INTERNET_FLAG_KEEP_CONNECTION | win32::INTERNET_FLAG_NO_AUTO_REDIRECT;

// The server's answer is a few hundred bytes. Whoever sends more than this is not it, whatever the answer holds, and
// must not fill the memory of an elevated program.
constexpr std::size_t kLongestReply = 1024 * 1024;

bool SendUpdateRequest(const win32::UniqueInternet& request, const ProductVersion& version) {
  std::u16string document =
      FormatText(kRequest, kContact, version.major, version.minor, version.hotfix, version.build, version.dotted);
  return win32::HttpSendRequestW(request.get(), kHeader, kEndsWithZero, document.data(),
                                 static_cast<win32::DWORD>(document.size() * sizeof(char16_t))) != win32::FALSE;
}

// What the reply's headers say. False with the last error.
bool QueryHeader(const win32::UniqueInternet& request, win32::DWORD level, std::u16string& text) {
  std::array<char16_t, 32> buffer{};
  win32::DWORD size = sizeof buffer;
  if (!win32::HttpQueryInfoW(request.get(), level, buffer.data(), &size, nullptr)) return false;
  text.assign(buffer.data(), size / sizeof(char16_t));
  return true;
}

bool IsAccepted(const win32::UniqueInternet& request) {
  std::u16string status;
  return QueryHeader(request, win32::HTTP_QUERY_STATUS_CODE, status) && status == u"200";
}

// A number in decimal digits, with or without zeros in front.
bool IsNumber(std::u16string_view text, std::size_t number) {
  if (text.empty()) return false;
  while (text.size() > 1 && text.front() == u'0') text.remove_prefix(1);
  return text == FormatText(u"%u", static_cast<win32::DWORD>(number));
}

// Does the text end with the tag that closes its first element?
bool IsWholeDocument(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const std::size_t last = text.find_last_not_of(kBlanks);
  if (last == text.npos) return false;
  text = text.substr(0, last + 1);
  std::size_t first = text.find('<');  // what begins with a letter is an element; "<?" and "<!" stand before it
  while (first < text.size() && (text.substr(first).starts_with("<?") || text.substr(first).starts_with("<!")))
    first = text.find('<', first + 1);
  if (first >= text.size()) return false;
  const std::string_view name = text.substr(first + 1, text.find_first_of(" \t\r\n/>", first) - first - 1);
  return text.ends_with("</" + std::string(name) + ">");
}

// The library takes a connection that ends early for the end of the reply. A reply that tells its length is held to it;
// one in chunks must be a whole document, and of one that goes on to the connection's end nobody can tell.
bool IsComplete(const win32::UniqueInternet& request, std::size_t bytes, const std::string& reply) {
  std::u16string text;
  if (QueryHeader(request, win32::HTTP_QUERY_CONTENT_LENGTH, text)) return IsNumber(text, bytes);
  if (win32::GetLastError() != win32::ERROR_HTTP_HEADER_NOT_FOUND) return false;
  if (QueryHeader(request, win32::HTTP_QUERY_TRANSFER_ENCODING, text)) return IsWholeDocument(reply);
  return win32::GetLastError() == win32::ERROR_HTTP_HEADER_NOT_FOUND;
}

// The whole reply. False when reading fails or does not come to an end.
bool ReadReply(const win32::UniqueInternet& request, std::string& reply) {
  constexpr win32::DWORD kPiece = 1024;
  std::size_t total = 0;
  for (;;) {
    std::array<char, kPiece + 1> piece{};
    win32::DWORD read = 0;
    if (!win32::InternetReadFile(request.get(), piece.data(), kPiece, &read)) return false;
    if (read == 0) return IsComplete(request, total, reply);
    total += read;
    if (total > kLongestReply) return false;
    reply += piece.data();  // the reply is text: a zero ends its piece
  }
}

char UpperCase(char letter) { return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter; }

int Judge(std::string reply) {
  std::transform(reply.begin(), reply.end(), reply.begin(), UpperCase);
  if (reply.find("<RESULT>LATEST</RESULT>") != std::string::npos) return kLatest;
  if (reply.find("<RESULT>UPDATE</RESULT>") != std::string::npos) return kNewerExists;
  return kFailed;
}

int AskServer() {
  const win32::UniqueInternet internet{
      win32::InternetOpenW(u"Update Agent", win32::INTERNET_OPEN_TYPE_PRECONFIG, nullptr, nullptr, 0)};
  if (!internet) return kFailed;
  const win32::UniqueInternet connection{win32::InternetConnectW(internet.get(), kServer,
                                                                 win32::INTERNET_DEFAULT_HTTP_PORT, nullptr, nullptr,
                                                                 win32::INTERNET_SERVICE_HTTP, 0, 1)};
  if (!connection) return kFailed;
  const win32::UniqueInternet request{win32::HttpOpenRequestW(connection.get(), u"POST", u"CheckFileXml.aspx", nullptr,
                                                              nullptr, nullptr, kRequestFlags, 0)};
  if (!request) return kFailed;

  ProductVersion version;
  if (!GetProductVersion(version)) {
    Log(u"Product Version extraction failed. Please check the file version.");
    return kFailed;
  }
  std::string reply;
  if (!SendUpdateRequest(request, version) || !IsAccepted(request) || !ReadReply(request, reply)) return kFailed;
  return Judge(std::move(reply));
}

}  // namespace

int CheckForUpdate(std::u16string& message) {
  int result = kFailed;
  try {
    result = AskServer();
  } catch (const std::exception&) {  // an exit code of 1 would say that there is a newer version
  }
  message = LoadResourceString(result == kLatest        ? StringId::LatestVersion
                               : result == kNewerExists ? StringId::NewerVersionExists
                                                        : StringId::UpdateCheckFailed);
  return result;
}
