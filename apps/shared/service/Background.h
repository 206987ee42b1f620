// How a service starts: what is set before it does anything, and its way to the background.
#pragma once

// What is logged and kept is for the service's user alone; sockets get their modes by the settings.
void setServiceUmask();

// Goes on in a child whose parent waits until it is ready. In the parent, does not return.
class Background {
 public:
  Background();
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  // Lets the parent end, and parts with the terminal.
  void tellReady() const;

 private:
  // Waits until the child is ready or has ended; answers the parent's exit status.
  static int _statusOf(int child, int pipe);

  int m_parent = -1;
};
