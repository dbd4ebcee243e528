#pragma once

namespace Vantor {

class JsonObject;
class Panel;

// What is known of a panel, as members of an object; null for what is not known.
void addPanel(JsonObject& object, const Panel& panel);

// No more than which one it is.
void addName(JsonObject& object, const Panel& panel);

// Why the library has it for dead; null while it is alive.
void addFailure(JsonObject& object, const Panel& panel);

} // namespace Vantor
