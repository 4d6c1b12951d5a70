#include "orrery/TableEntity.h"

namespace QuillVesta {

TableEntity::~TableEntity() = default;

}  // namespace QuillVesta
