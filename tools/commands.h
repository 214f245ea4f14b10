// The program's commands. Each throws Failure with a one-line reason.
#pragma once

#include "options.h"

namespace qdtool {

void Eval(const EvalOptions& options);
void Plot(const PlotOptions& options);
void Show(const ShowOptions& options);
void Dump(const DumpOptions& options);
void Validate(const ValidateOptions& options);
void Find(const FindOptions& options);
void Simplify(const SimplifyOptions& options);
// Prints the document's findings; 1 when any is an error, 0 otherwise.
int Check(const CheckOptions& options);

}  // namespace qdtool
