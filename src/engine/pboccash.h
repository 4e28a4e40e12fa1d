// The card engine: everything between the reader's messages and the host's texts.
#pragma once

#include "engine/apdu.h"
#include "engine/arpc.h"
#include "engine/arqc.h"
#include "engine/card_info.h"
#include "engine/commands.h"
#include "engine/currency_table.h"
#include "engine/dol.h"
#include "engine/power_off.h"
#include "engine/reading.h"
#include "engine/script.h"
#include "engine/selection.h"
#include "engine/tag_table.h"
#include "engine/terminal_data.h"
#include "engine/tlv.h"
#include "engine/transaction_data.h"
#include "engine/transaction_log.h"
