#pragma once

// The rows of the table, by theme.
namespace Rows {

void addPatchRows();
void addIntakeRows();
void addStartRows();
void addDiscoveryRows();
void addEngineRows();
void addSelectorRows();

} // namespace Rows
