#pragma once

#include <string>

namespace oru::tools {

// A TCP socket listening on 127.0.0.1 at a port the system picks, for the small HTTP servers
// that the tests and the benchmarks run in their own process. Owns the socket and closes it on
// destruction. accept() on the server's thread; shutdown() from any thread.
class LoopbackListener {
 public:
  LoopbackListener();
  ~LoopbackListener();

  LoopbackListener(LoopbackListener const&) = delete;
  LoopbackListener& operator=(LoopbackListener const&) = delete;

  // Empty when listening; otherwise why it is not.
  std::string const& error() const { return mError; }
  // "http://127.0.0.1:PORT" followed by `path`, which starts with "/".
  std::string url(std::string const& path) const;

  // Waits for the next connection and returns its socket (closed on exec), which the caller
  // then owns; -1 once shut down.
  int accept();
  // Ends a waiting accept() and any later one.
  void shutdown();

 private:
  int mSocket = -1;
  int mPort = 0;
  std::string mError;
};

}  // namespace oru::tools
