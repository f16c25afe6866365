// The table of functions, and their registration with FileMaker: each is a calculation function and, on hosts that
// know plug-in script steps, a script step with the same ID and handler.
//
// Registration happens on the thread of the start-up message.
#pragma once

#include "frame/fmx_sdk.h"
#include "frame/script_step.h"

#include <span>

namespace frame {

struct Function {
    short stringNumber; // selects prototype and description in the strings table
    short id;           // FileMaker's; saved in solutions, so never changed
    short minimum;      // arguments
    short maximum;
    fmx::ExtPluginType handler;
    StepParameters parameters; // of its script step
};

// In the order of registration.
std::span<const Function> functionTable();

// Registers every function of the table. A registration that FileMaker refuses is passed over. Throws what the SDK's
// wrapper calls throw.
void registerAll();

// Takes back what the ID ranges 1 to 39 and 150 to 200 cover. Function 201 lies outside and stays registered.
void unregisterAll();

} // namespace frame
