#pragma once

#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/endpoints.h"
#include "host/evidence.h"
#include "host/live_screen.h"
#include "host/port_counts.h"
#include "host/wrapper.h"

namespace corvalint::host {

// The local time, as "18:30:05" and as "2026-11-21T18:30:05".
std::string TimeOfDay(std::time_t time = std::time(nullptr));
std::string DateAndTime(std::time_t time = std::time(nullptr));

std::string DevicesText(unsigned int devices);

// What `watch` sees at one look.
struct Look {
  Listing listing;
  unsigned int devices = 0;
  std::vector<Change> changes;  // since the look before, often none
  std::vector<PortNews> news;   // the same
  std::vector<PortRate> rates;
};

// Shows what `watch` sees: as lines, as documents or on a screen. One thread.
class WatchView {
 public:
  virtual ~WatchView() = default;
  // The first look.
  virtual void Begin(const Look& look) = 0;
  // The next look, some tenths of a second later.
  virtual void Update(const Look& look) = 0;
};

using PrintText = std::function<void(const std::string& text)>;

// A line with the time of day for each change.
class LineView : public WatchView {
 public:
  explicit LineView(PrintText printText) : print(std::move(printText)) {}
  void Begin(const Look& look) override;
  void Update(const Look& look) override;

 private:
  PrintText print;
  unsigned int devicesBefore = 0;
};

// A document for the lists, then one for each change.
class DocumentView : public WatchView {
 public:
  explicit DocumentView(PrintText printText) : print(std::move(printText)) {}
  void Begin(const Look& look) override;
  void Update(const Look& look) override;

 private:
  PrintText print;
  unsigned int devicesBefore = 0;
};

// Everything at once on a screen, in place.
class LiveView : public WatchView {
 public:
  // The system outlives the object.
  LiveView(std::unique_ptr<Screen> theScreen, const System& hostSystem)
      : screen(std::move(theScreen)), system(hostSystem) {}
  void Begin(const Look& look) override;
  void Update(const Look& look) override;

 private:
  void Show(const Look& look);

  std::unique_ptr<Screen> screen;
  const System& system;
  ConsoleReader console;
  SecondHistory history;
};

}  // namespace corvalint::host
