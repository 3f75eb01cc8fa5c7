// SPDX-License-Identifier: Apache-2.0
#include "sip/DataStruct.h"

bool CDataStruct::Set(const value& from) {
    value_.SetNull();
    pool_.Clear();
    return CRapidJsonUtil::CopyValue(value_, from, pool_);
}
