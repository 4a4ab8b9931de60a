#include "ZRUIElementToolData.h"

ZRUIElementToolData::ZRUIElementToolData(QObject* parent) : ZREntity(parent) {}
