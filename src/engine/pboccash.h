// The card engine: everything between the reader's messages and the host's texts.
#pragma once

#include "engine/card/apdu.h"
#include "engine/card/commands.h"
#include "engine/card/reading.h"
#include "engine/card/script.h"
#include "engine/card/selection.h"
#include "engine/data/currency_table.h"
#include "engine/data/dol.h"
#include "engine/data/tag_table.h"
#include "engine/data/terminal_data.h"
#include "engine/data/tlv.h"
#include "engine/data/transaction_data.h"
#include "engine/operation/arpc.h"
#include "engine/operation/arqc.h"
#include "engine/operation/card_info.h"
#include "engine/operation/power_off.h"
#include "engine/operation/transaction_log.h"
