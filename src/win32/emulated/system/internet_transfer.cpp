#include "win32/emulated/system/internet_transfer.h"

#include <curl/curl.h>

#include <algorithm>

#include "win32/constants.h"

namespace emulated {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

// What Windows waits for a server's answer when nobody sets another time.
constexpr milliseconds kPatience = std::chrono::seconds(30);

constexpr std::size_t kMostHeaderBytes = 256 * 1024;
constexpr long kFirstFinalStatus = 200;  // those below announce another reply
constexpr milliseconds kLongestWait{1000};

win32::DWORD ErrorOf(CURLcode code) {
  switch (code) {
    case CURLE_OK:
      return win32::ERROR_SUCCESS;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return win32::ERROR_INTERNET_NAME_NOT_RESOLVED;
    case CURLE_COULDNT_CONNECT:
      return win32::ERROR_INTERNET_CANNOT_CONNECT;
    case CURLE_OPERATION_TIMEDOUT:
      return win32::ERROR_INTERNET_TIMEOUT;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return win32::ERROR_INTERNET_CONNECTION_RESET;
    case CURLE_PARTIAL_FILE:
    case CURLE_GOT_NOTHING:
      return win32::ERROR_INTERNET_CONNECTION_ABORTED;
    case CURLE_OUT_OF_MEMORY:
      return win32::ERROR_NOT_ENOUGH_MEMORY;
    default:
      return win32::ERROR_HTTP_INVALID_SERVER_RESPONSE;
  }
}

bool InitializeLibrary() {
  static const bool initialized = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return initialized;
}

}  // namespace

struct HttpTransfer::Curl {
  CURL* easy = nullptr;
  CURLM* multi = nullptr;
  curl_slist* headers = nullptr;

  ~Curl() {
    if (multi && easy) curl_multi_remove_handle(multi, easy);
    curl_easy_cleanup(easy);
    curl_multi_cleanup(multi);
    curl_slist_free_all(headers);
  }
  bool AddHeader(const std::string& line) {
    curl_slist* const longer = curl_slist_append(headers, line.c_str());
    if (longer) headers = longer;
    return longer != nullptr;
  }
};

// What the library calls back; it must not be left by an exception.
struct HttpTransfer::Callbacks {
  static std::size_t Header(char* line, std::size_t, std::size_t size, void* context) {
    HttpTransfer& transfer = *static_cast<HttpTransfer*>(context);
    transfer.lastSign_ = steady_clock::now();
    transfer.headerBytes_ += size;
    if (transfer.headerBytes_ > kMostHeaderBytes) return 0;
    const bool emptyLine = size <= 2 && (size == 0 || line[0] == '\r' || line[0] == '\n');
    if (!emptyLine) return size;
    long status = 0;
    curl_easy_getinfo(transfer.curl_->easy, CURLINFO_RESPONSE_CODE, &status);
    const bool onTheWay = status < kFirstFinalStatus || (transfer.request_.followRedirects && status / 100 == 3);
    if (!onTheWay) transfer.headersDone_ = true;
    return size;
  }

  static std::size_t Body(char* data, std::size_t, std::size_t size, void* context) {
    HttpTransfer& transfer = *static_cast<HttpTransfer*>(context);
    transfer.lastSign_ = steady_clock::now();
    transfer.headersDone_ = true;
    if (transfer.held_.size() >= transfer.room_) {
      transfer.paused_ = true;  // the library keeps this piece and offers it again
      return CURL_WRITEFUNC_PAUSE;
    }
    try {
      transfer.held_.insert(transfer.held_.end(), data, data + size);
    } catch (const std::bad_alloc&) {
      return 0;
    }
    return size;
  }
};

HttpTransfer::HttpTransfer(HttpRequest request) : request_(std::move(request)) {}

HttpTransfer::~HttpTransfer() = default;

win32::DWORD HttpTransfer::Send() {
  curl_ = std::make_unique<Curl>();
  if (!InitializeLibrary()) return win32::ERROR_NOT_ENOUGH_MEMORY;
  curl_->easy = curl_easy_init();
  curl_->multi = curl_multi_init();
  if (!curl_->easy || !curl_->multi) return win32::ERROR_NOT_ENOUGH_MEMORY;
  for (const std::string& line : request_.headers)
    if (!curl_->AddHeader(line)) return win32::ERROR_NOT_ENOUGH_MEMORY;

  CURL* const easy = curl_->easy;
  const auto set = [easy](CURLoption option, auto value) { return curl_easy_setopt(easy, option, value) == CURLE_OK; };
  const bool ready =
      set(CURLOPT_URL, request_.url.c_str()) && set(CURLOPT_PROTOCOLS_STR, "http") &&
      set(CURLOPT_REDIR_PROTOCOLS_STR, "http") && set(CURLOPT_POST, 1L) &&
      set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size())) &&
      set(CURLOPT_POSTFIELDS, request_.body.empty() ? "" : reinterpret_cast<const char*>(request_.body.data())) &&
      set(CURLOPT_CUSTOMREQUEST, request_.verb == "POST" ? nullptr : request_.verb.c_str()) &&
      set(CURLOPT_USERAGENT, request_.agent.c_str()) && set(CURLOPT_HTTPHEADER, curl_->headers) &&
      set(CURLOPT_FOLLOWLOCATION, request_.followRedirects ? 1L : 0L) && set(CURLOPT_NOSIGNAL, 1L) &&
      set(CURLOPT_HEADERFUNCTION, &Callbacks::Header) && set(CURLOPT_HEADERDATA, static_cast<void*>(this)) &&
      set(CURLOPT_WRITEFUNCTION, &Callbacks::Body) && set(CURLOPT_WRITEDATA, static_cast<void*>(this)) &&
      curl_multi_add_handle(curl_->multi, easy) == CURLM_OK;
  if (!ready) return win32::ERROR_NOT_ENOUGH_MEMORY;

  lastSign_ = steady_clock::now();
  Drive([this] { return headersDone_; });
  if (!headersDone_) return error_ != 0 ? error_ : win32::ERROR_HTTP_INVALID_SERVER_RESPONSE;
  curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status_);
  return win32::ERROR_SUCCESS;
}

std::optional<std::string> HttpTransfer::Header(const char* name) const {
  curl_header* header = nullptr;
  if (curl_easy_header(curl_->easy, name, 0, CURLH_HEADER, -1, &header) != CURLHE_OK) return std::nullopt;
  return header->value;
}

win32::DWORD HttpTransfer::Read(std::size_t wanted, Bytes& taken) {
  room_ = wanted;
  lastSign_ = steady_clock::now();
  Drive([this] { return held_.size() >= room_; });
  if (held_.empty() && wanted != 0 && error_ != 0) return error_;
  const std::size_t count = std::min(wanted, held_.size());
  const auto end = held_.begin() + static_cast<std::ptrdiff_t>(count);
  taken.assign(held_.begin(), end);
  held_.erase(held_.begin(), end);
  return win32::ERROR_SUCCESS;
}

template <typename Condition>
void HttpTransfer::Drive(Condition enough) {
  if (paused_ && !ended_ && !enough()) {
    paused_ = false;
    curl_easy_pause(curl_->easy, CURLPAUSE_CONT);
  }
  int running = 1;
  while (!ended_ && !enough()) {
    if (curl_multi_perform(curl_->multi, &running) != CURLM_OK) {
      error_ = win32::ERROR_HTTP_INVALID_SERVER_RESPONSE;
      ended_ = true;
    }
    FinishMessages();
    if (ended_ || enough()) return;
    const auto silent = std::chrono::duration_cast<milliseconds>(steady_clock::now() - lastSign_);
    if (silent >= kPatience) {
      error_ = win32::ERROR_INTERNET_TIMEOUT;
      ended_ = true;
      return;
    }
    const milliseconds wait = std::min(kLongestWait, kPatience - silent);
    curl_multi_poll(curl_->multi, nullptr, 0, static_cast<int>(wait.count()), nullptr);
  }
}

void HttpTransfer::FinishMessages() {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(curl_->multi, &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    ended_ = true;
    error_ = ErrorOf(message->data.result);
    if (error_ == 0) headersDone_ = true;
  }
}

}  // namespace emulated
