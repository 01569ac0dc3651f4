#pragma once

// The four driver commands and the undoable actions they are built from. Each command is a list
// of actions run in order; when one fails, those already done are undone in reverse order, so
// that a command either completes or is rolled back as far as its steps can be undone.

#include <cstddef>
#include <cstdint>

#include "cli/handlers.h"
#include "core/guid.h"

namespace nw {

/// ERROR_NOT_ENOUGH_MEMORY: what a list that cannot grow reports.
inline constexpr uint32_t kErrorNotEnoughMemory = 8;
/// The most memory an action array may hold in pointers.
inline constexpr size_t kMaxActionArrayBytes = 0x1000000;

/// One undoable step. Owned by the list that holds it and deleted through this base.
class IGAction {
 public:
  virtual ~IGAction() = default;
  /// 0 on success, otherwise a Windows error or an HRESULT.
  virtual uint32_t doAction() = 0;
  /// Reverses a doAction that succeeded.
  virtual uint32_t undoAction() = 0;
  /// Called after a whole list succeeded.
  virtual uint32_t commitAction() { return 0; }
  /// Called after a failed list has been undone.
  virtual uint32_t abortAction() { return 0; }
};

/// A growable array of action pointers with a 32-bit count and capacity. A full array doubles
/// (to at least 4 entries); growing beyond kMaxActionArrayBytes, or an allocation that fails,
/// is error 8. It owns its storage, not the actions.
class ActionArray {
 public:
  ActionArray() = default;
  ~ActionArray();
  ActionArray(const ActionArray&) = delete;
  ActionArray& operator=(const ActionArray&) = delete;

  /// 0, or kErrorNotEnoughMemory with the array unchanged.
  uint32_t Append(IGAction* action);
  uint32_t count() const { return count_; }
  uint32_t capacity() const { return capacity_; }
  IGAction* operator[](uint32_t index) const { return items_[index]; }

  /// Where the storage comes from (std::malloc); tests put a failing allocator here.
  static void* (*allocate)(size_t bytes);

 private:
  IGAction** items_ = nullptr;
  uint32_t count_ = 0;
  uint32_t capacity_ = 0;
};

/// An action made of child actions, run in order and undone in reverse.
class IGActionList : public IGAction {
 public:
  IGActionList() = default;
  /// Destroys every child in list order.
  ~IGActionList() override;

  /// Takes ownership of action (null is accepted and refused). On failure the action is
  /// destroyed and kErrorNotEnoughMemory returned.
  uint32_t Add(IGAction* action);
  /// Runs the children until one fails; returns its result, or 0.
  uint32_t doAction() override;
  /// Undoes every child that succeeded, last first; returns the first failure met, or 0.
  uint32_t undoAction() override;

  const ActionArray& actions() const { return actions_; }
  const ActionArray& completed() const { return completed_; }

 private:
  ActionArray actions_;
  ActionArray completed_;  // not owned: the children whose doAction succeeded
};

/// Sets a driver's start type; the undo puts back the one it found, when it found one.
class IGEnableDriver : public IGAction {
 public:
  IGEnableDriver(const wchar_t* service, uint32_t startType, DriverLogFn log)
      : IGEnableDriver(service, startType, log,
                       "IGEnableDriver::doAction for service [%S] result is [%d]",
                       "IGEnableDriver::undoAction (%S) attempted with result of [%d]") {}
  uint32_t doAction() override;
  uint32_t undoAction() override;

  uint32_t previousStartType() const { return previousStartType_; }
  bool hasPreviousStartType() const { return hasPreviousStartType_; }

 protected:
  IGEnableDriver(const wchar_t* service, uint32_t startType, DriverLogFn log,
                 const char* doneFormat, const char* undoneFormat)
      : service_(service),
        startType_(startType),
        log_(log),
        doneFormat_(doneFormat),
        undoneFormat_(undoneFormat) {}

 private:
  const wchar_t* service_;
  uint32_t previousStartType_ = 0;
  bool hasPreviousStartType_ = false;
  uint32_t startType_;
  DriverLogFn log_;
  // The log lines name the action's own class.
  const char* doneFormat_;
  const char* undoneFormat_;
};

/// Sets a driver's start type to disabled (4).
class IGDisableDriver : public IGEnableDriver {
 public:
  IGDisableDriver(const wchar_t* service, DriverLogFn log);
};

/// Stops a driver service; the undo starts it again.
class IGStopDriver : public IGAction {
 public:
  IGStopDriver(const wchar_t* service, DriverLogFn log) : service_(service), log_(log) {}
  uint32_t doAction() override;
  uint32_t undoAction() override;

 private:
  const wchar_t* service_;
  DriverLogFn log_;
};

/// Registers a driver's network component; the undo removes it.
class IGRegisterNetComponent : public IGAction {
 public:
  IGRegisterNetComponent(const wchar_t* service, const Guid& deviceClass, DriverLogFn log)
      : service_(service), deviceClass_(deviceClass), log_(log) {}
  uint32_t doAction() override;
  uint32_t undoAction() override;

 protected:
  uint32_t Install();
  uint32_t Uninstall();

 private:
  const wchar_t* service_;
  Guid deviceClass_;
  DriverLogFn log_;
};

/// Removes a driver's network component; the undo registers it again.
class IGUnregisterNetComponent : public IGRegisterNetComponent {
 public:
  using IGRegisterNetComponent::IGRegisterNetComponent;
  uint32_t doAction() override { return Uninstall(); }
  uint32_t undoAction() override { return Install(); }
};

/// Runs list, commits it or undoes and aborts it, and destroys it.
void RunActionList(IGActionList* list);

// The four driver handlers are declared with the other handlers (cli/handlers.h).

/// The start type of the TCP/IP driver (of tdx before Windows 7), 0 when none can be read.
uint32_t GetTcpipStartType();
/// ((major x 10 + minor) x 10 + service-pack major) x 10 + service-pack minor, computed once per
/// process; 0 when the version cannot be read.
int32_t GetOsVersionNumber();
/// Forgets the computed version number (tests).
void ResetOsVersionNumberForTesting();

}  // namespace nw
