// libmilter, and the only calls of it. One front end in a process: libmilter is one.
#pragma once

#include "DecisionDesk.h"
#include "milter/MessagesInProgress.h"
#include "service/SocketFile.h"

class MilterFrontEnd {
 public:
  // Opens the socket that the settings name. Throws RuntimeError naming it. All must outlive the process: sessions may
  // still end while it does.
  MilterFrontEnd(const DecisionDesk& desk, MessagesInProgress& messages);

  // Serves as long as the process lives, unless libmilter fails; not on the main thread (see Signals.h).
  void run();

  const SocketFile& socketFile() const { return m_file; }

 private:
  SocketFile m_file;
};
