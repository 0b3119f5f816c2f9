// The host application's interfaces, declared as the plug-in uses them.
//
// The host owns every object behind these interfaces except the plug-in itself (IZnPlugin) and the
// device lists (IPtrList, implemented by zn::PtrList in ptrlist.h). Only the operations that the
// plug-in calls are declared, in the order of their slots. Nobody deletes an object through one of
// these interfaces, so their destructors are protected and not virtual.
//
// Threads: the host must accept calls from the host's own thread (initialize, configDir), from the
// plug-in's server thread (everything a client command does, including IDev::abortAcquisition while
// runAcquisition runs elsewhere) and from the acquisition thread (IDev::runAcquisition).
#pragma once

#include <cstdint>

namespace zn {

// The arguments the plug-in passes to the host's calls, by name.
constexpr int kAcquisitionDeviceFilter = 1;  // listDevicesFiltered: the devices START counts in
constexpr int kThresholdSelector = 0;        // thresholdRange, setThreshold: which threshold
constexpr int kThresholdKind = 2;            // thresholdRange, setThreshold: the kind of value
constexpr int kAcquisitionFlag = 1;          // runAcquisition
constexpr int kSetFileFlag = 1;              // IDevControl::setFile

// A list of pointers that the host fills; the plug-in creates and owns the list.
template <typename T>
class IPtrList {
public:
    virtual unsigned int size() const = 0;
    // No bounds check: index must be below size().
    virtual T get(unsigned int index) const = 0;
    virtual void add(T item) = 0;
    // index may be 0..size(); size() appends. No bounds check.
    virtual void insert(int index, T item) = 0;
    // 0 on success, -1 when index is not below size() (the list is then unchanged).
    virtual int erase(unsigned int index) = 0;
    virtual void clear() = 0;

protected:
    ~IPtrList() = default;
};

// One acquisition device of the host.
class IDev {
public:
    // Runs a whole acquisition and returns when it has ended: 0 on success, anything else on
    // failure. May run for a long time; abortAcquisition() from another thread ends it early.
    virtual int runAcquisition(int count, double time, int flag, const char* fileName) = 0;
    virtual int abortAcquisition() = 0;
    // 0 on success.
    virtual int setThreshold(int selector, int kind, double value) = 0;
    // Writes the allowed threshold range; a device may write nothing.
    virtual int thresholdRange(int selector, int kind, double* minValue, double* maxValue) = 0;

protected:
    ~IDev() = default;
};

// The host's handle of another loaded plug-in.
class IPluginHandle {
public:
    // The interface that plug-in offers to others, or null.
    virtual void* privateInterface() = 0;

protected:
    ~IPluginHandle() = default;
};

// Private interface of the host's "devcontrol" plug-in.
class IDevControl {
public:
    virtual int setFile(IDev* device, const char* fileName, int flag) = 0;
    virtual int start(IDev* device) = 0;
    virtual int stop(IDev* device) = 0;
    virtual bool isRunning(IDev* device) = 0;

protected:
    ~IDevControl() = default;
};

// The host core, handed to a plug-in's initialize().
class IZenthi {
public:
    // printf-style entry in the host's log.
    virtual int log(const char* source, int level, const char* format, ...)
        __attribute__((format(printf, 4, 5))) = 0;
    // Appends all devices; a device's position is the index used by the GUI_ commands.
    virtual int listDevices(IPtrList<IDev*>* list) = 0;
    // Appends the devices the host selects for filter; the index used by START.
    virtual int listDevicesFiltered(IPtrList<IDev*>* list, int filter) = 0;
    // The loaded plug-in of that name, or null.
    virtual IPluginHandle* findPlugin(const char* name) = 0;
    // Directory of plug-in settings files, without a trailing '/'.
    virtual const char* configDir() = 0;

protected:
    ~IZenthi() = default;
};

// What every plug-in implements. The host never deletes a plug-in through this interface.
class IZnPlugin {
public:
    virtual std::int32_t initialize(IZenthi* host) = 0;
    virtual void onStart() = 0;
    virtual void onClose() = 0;
    virtual const char* name() const = 0;
    virtual const char* description() const = 0;
    virtual void* privateInterface() = 0;

protected:
    ~IZnPlugin() = default;
};

// The one symbol a plug-in module exports: returns the module's plug-in object.
using GetPluginFunction = IZnPlugin* (*)();
constexpr const char* kGetPluginSymbol = "znGetPlugin";

}  // namespace zn
