// Stands in for a program: sends its own path, its arguments and, if its name is find, its standard input to the server
// on port STANDIN, writes what that answers and ends with the code that comes first (tests/wine/standins.py).
#include <winsock2.h>

#include <cstdlib>
#include <string>

int wmain(int argc, wchar_t** argv);

int wmain(int argc, wchar_t** argv) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring words = path;
  for (int i = 1; i < argc; ++i) words += std::wstring(L"\n") + argv[i];
  std::string request(reinterpret_cast<const char*>(words.c_str()), (words.size() + 1) * sizeof(wchar_t));
  char buffer[65536];
  DWORD size = 0;
  const bool isFilter = std::wstring(path).ends_with(L"find.exe");
  while (isFilter && ReadFile(GetStdHandle(STD_INPUT_HANDLE), buffer, sizeof buffer, &size, nullptr) && size != 0)
    request.append(buffer, size);

  WSADATA data{};
  WSAStartup(MAKEWORD(2, 2), &data);
  sockaddr_in server{};
  server.sin_family = AF_INET;
  server.sin_port = htons(static_cast<u_short>(std::strtoul(std::getenv("STANDIN"), nullptr, 10)));
  server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const SOCKET line = socket(AF_INET, SOCK_STREAM, 0);
  if (connect(line, reinterpret_cast<sockaddr*>(&server), sizeof server) != 0) return 99;
  send(line, request.data(), static_cast<int>(request.size()), 0);  // a socket that blocks takes all of it
  shutdown(line, SD_SEND);
  std::string answer;
  for (int got; (got = recv(line, buffer, sizeof buffer, 0)) > 0;) answer.append(buffer, static_cast<unsigned>(got));
  std::size_t code = 0;
  const int ended = std::stoi(answer, &code);
  answer.erase(0, code + 1);
  WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), answer.data(), static_cast<DWORD>(answer.size()), &size, nullptr);
  return ended;
}
