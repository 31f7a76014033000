// The script lexer.
#include "script/lexer.h"

namespace tarn {

ScriptLocation script_location;

void script_reset() { script_location = ScriptLocation{}; }

} // namespace tarn
