// Signals and other events for the main thread.
//
// A handler on the main thread puts SIGHUP, SIGTERM and SIGINT into a pipe that the thread reads. All other threads
// block them, so that none interrupts their system calls.
#pragma once

#include <chrono>

enum class Event : char {
  None = 0,  // the time is over
  Reload = 'r',
  Stop = 's',
  Begun = 'b',  // what the service's start waits for is there
  Ended = 'e',  // what the service runs has ended by itself
};

class Signals {
 public:
  // Blocks the signals until `receive`, so that the threads that are started meanwhile keep them blocked. One at a time.
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  // The main thread takes signals from now on.
  void receive();
  // Waits until `Begun` is raised, for so long at most, and takes signals meanwhile; a reload is put off. False when
  // the service is to end.
  bool waitUntilBegun(std::chrono::milliseconds longest);
  // Waits for an event.
  Event wait(std::chrono::milliseconds longest) const;
  // Any thread: makes an event.
  void raise(Event event) const;

 private:
  static void _block();

  int m_readEnd;
  int m_writeEnd;
};
