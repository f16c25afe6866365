// What a plug-in registers with the calculation engine: functions and script steps.
#pragma once

#include "FMXBinaryData.h"
#include "FMXData.h"
#include "FMXText.h"
#include "FMXTypes.h"

#include <memory>

namespace fmx {

class ExprEnv;

// Called for a function or step with its arguments; fills the result and returns 0 or an error code. May be called on
// any thread, on several at once.
using ExtPluginType = errcode (*)(short functionId, const ExprEnv& environment, const DataVect& arguments,
                                  Data& result);

extern "C" {
FMX_API ExprEnv* FM_ExprEnv_Constructor1(_fmxcpt& x);
FMX_API void FM_ExprEnv_Delete(ExprEnv* self, _fmxcpt& x);
FMX_API errcode FM_ExprEnv_RegisterExternalFunction(const QuadChar& pluginId, short functionId, const Text& name,
                                                    const Text& prototype, short minimum, short maximum, uint32 flags,
                                                    ExtPluginType handler, _fmxcpt& x);
FMX_API errcode FM_ExprEnv_RegisterExternalFunctionEx(const QuadChar& pluginId, short functionId, const Text& name,
                                                      const Text& prototype, const Text& description, short minimum,
                                                      short maximum, uint32 flags, ExtPluginType handler, _fmxcpt& x);
FMX_API errcode FM_ExprEnv_RegisterScriptStep(const QuadChar& pluginId, short stepId, const Text& name,
                                              const Text& definition, const Text& description, uint32 flags,
                                              ExtPluginType handler, _fmxcpt& x);
FMX_API errcode FM_ExprEnv_UnRegisterExternalFunction(const QuadChar& pluginId, short functionId, _fmxcpt& x);
FMX_API errcode FM_ExprEnv_UnRegisterScriptStep(const QuadChar& pluginId, short stepId, _fmxcpt& x);
}

// The registering members may be called from any thread. They return 0, or change nothing and return:
//   1200  an empty name, no handler, a negative minimum, a maximum below -1 or below the minimum (-1: any number)
//   1210  the plug-in has a function (or step) with this ID. Names may be shared: of two functions of one name,
//         calculations get the one that was registered first.
//   1224  to unregister: there is no such function or step
// A description reads "type-ahead words|description".
class ExprEnv {
public:
    static errcode RegisterExternalFunction(const QuadChar& pluginId, short functionId, const Text& name,
                                            const Text& prototype, short minimum, short maximum, uint32 flags,
                                            ExtPluginType handler)
    {
        return _fmxcall(FM_ExprEnv_RegisterExternalFunction, pluginId, functionId, name, prototype, minimum, maximum,
                        flags, handler);
    }
    static errcode RegisterExternalFunctionEx(const QuadChar& pluginId, short functionId, const Text& name,
                                              const Text& prototype, const Text& description, short minimum,
                                              short maximum, uint32 flags, ExtPluginType handler)
    {
        return _fmxcall(FM_ExprEnv_RegisterExternalFunctionEx, pluginId, functionId, name, prototype, description,
                        minimum, maximum, flags, handler);
    }
    // `definition` is the XML text of the step's parameters; it may be empty.
    static errcode RegisterScriptStep(const QuadChar& pluginId, short stepId, const Text& name, const Text& definition,
                                      const Text& description, uint32 flags, ExtPluginType handler)
    {
        return _fmxcall(FM_ExprEnv_RegisterScriptStep, pluginId, stepId, name, definition, description, flags, handler);
    }
    static errcode UnRegisterExternalFunction(const QuadChar& pluginId, short functionId)
    {
        return _fmxcall(FM_ExprEnv_UnRegisterExternalFunction, pluginId, functionId);
    }
    static errcode UnRegisterScriptStep(const QuadChar& pluginId, short stepId)
    {
        return _fmxcall(FM_ExprEnv_UnRegisterScriptStep, pluginId, stepId);
    }

    void operator delete(void* self)
    {
        _fmxcpt x;
        FM_ExprEnv_Delete(static_cast<ExprEnv*>(self), x);
    }

private:
    ExprEnv();
    ExprEnv(const ExprEnv&);
    ExprEnv& operator=(const ExprEnv&);
};

class ExprEnvUniquePtr : public std::unique_ptr<ExprEnv> {
public:
    ExprEnvUniquePtr() : std::unique_ptr<ExprEnv>(_fmxcall(FM_ExprEnv_Constructor1)) {}
};

} // namespace fmx
