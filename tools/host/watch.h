#pragma once

#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <utility>
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

// Tells each change once, in a text of its own.
class ChangeView : public WatchView {
 public:
  void Begin(const Look& look) final;
  void Update(const Look& look) final;

 protected:
  explicit ChangeView(PrintText printText) : print(std::move(printText)) {}

 private:
  // All without their line ends.
  virtual std::string FirstText(const Look& look) const = 0;
  virtual std::string TextOf(const Change& change) const = 0;
  virtual std::string TextOf(const PortNews& news) const = 0;
  virtual std::string TextOfDevices(unsigned int devices) const = 0;

  PrintText print;
  unsigned int devicesBefore = 0;
};

// A line with the time of day for each change.
class LineView : public ChangeView {
 public:
  explicit LineView(PrintText printText) : ChangeView(std::move(printText)) {}

 private:
  std::string FirstText(const Look& look) const override;
  std::string TextOf(const Change& change) const override;
  std::string TextOf(const PortNews& news) const override;
  std::string TextOfDevices(unsigned int devices) const override;
};

// A document for the lists, then one for each change.
class DocumentView : public ChangeView {
 public:
  explicit DocumentView(PrintText printText) : ChangeView(std::move(printText)) {}

 private:
  std::string FirstText(const Look& look) const override;
  std::string TextOf(const Change& change) const override;
  std::string TextOf(const PortNews& news) const override;
  std::string TextOfDevices(unsigned int devices) const override;
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
