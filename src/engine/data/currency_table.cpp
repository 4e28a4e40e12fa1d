// The letters of every ISO 4217 numeric code, for hosts that show an amount of a card's log.
#include "engine/data/currency_table.h"

// Ordered by numeric code. Cards in the field outlive currencies, so a withdrawn name stays as long
// as its number is not another currency's; where a number passed from one to the next, the last
// holder names it. 0532 alone has both holders, the current one first: logs still speak of "ANG".
// "AYM", "GHP" and "ZWN" are left out: they were replaced before they came into use. "DEM" has the
// number of the united Germany and not the earlier 0280, since a name is listed once.
// clang-format off
const currency_entry gc4217Name[kCurrencyTableSize] = {
    {0x0004, "AFA"}, {0x0008, "ALL"}, {0x0012, "DZD"}, {0x0020, "ADP"}, {0x0024, "AON"},
    {0x0031, "AZM"}, {0x0032, "ARS"}, {0x0036, "AUD"}, {0x0040, "ATS"}, {0x0044, "BSD"},
    {0x0048, "BHD"}, {0x0050, "BDT"}, {0x0051, "AMD"}, {0x0052, "BBD"}, {0x0056, "BEF"},
    {0x0060, "BMD"}, {0x0064, "BTN"}, {0x0068, "BOB"}, {0x0070, "BAD"}, {0x0072, "BWP"},
    {0x0076, "BRE"}, {0x0084, "BZD"}, {0x0090, "SBD"}, {0x0096, "BND"}, {0x0100, "BGL"},
    {0x0104, "MMK"}, {0x0108, "BIF"}, {0x0112, "BYB"}, {0x0116, "KHR"}, {0x0124, "CAD"},
    {0x0132, "CVE"}, {0x0136, "KYD"}, {0x0144, "LKR"}, {0x0152, "CLP"}, {0x0156, "CNY"},
    {0x0170, "COP"}, {0x0174, "KMF"}, {0x0180, "ZRN"}, {0x0188, "CRC"}, {0x0191, "HRK"},
    {0x0192, "CUP"}, {0x0196, "CYP"}, {0x0200, "CSK"}, {0x0203, "CZK"}, {0x0208, "DKK"},
    {0x0214, "DOP"}, {0x0218, "ECS"}, {0x0222, "SVC"}, {0x0226, "GQE"}, {0x0230, "ETB"},
    {0x0232, "ERN"}, {0x0233, "EEK"}, {0x0238, "FKP"}, {0x0242, "FJD"}, {0x0246, "FIM"},
    {0x0250, "FRF"}, {0x0262, "DJF"}, {0x0268, "GEK"}, {0x0270, "GMD"}, {0x0276, "DEM"},
    {0x0278, "DDM"}, {0x0288, "GHC"}, {0x0292, "GIP"}, {0x0300, "GRD"}, {0x0320, "GTQ"},
    {0x0324, "GNF"}, {0x0328, "GYD"}, {0x0332, "HTG"}, {0x0340, "HNL"}, {0x0344, "HKD"},
    {0x0348, "HUF"}, {0x0352, "ISK"}, {0x0356, "INR"}, {0x0360, "IDR"}, {0x0364, "IRR"},
    {0x0368, "IQD"}, {0x0372, "IEP"}, {0x0376, "ILS"}, {0x0380, "ITL"}, {0x0388, "JMD"},
    {0x0392, "JPY"}, {0x0396, "XAD"}, {0x0398, "KZT"}, {0x0400, "JOD"}, {0x0404, "KES"},
    {0x0408, "KPW"}, {0x0410, "KRW"}, {0x0414, "KWD"}, {0x0417, "KGS"}, {0x0418, "LAK"},
    {0x0422, "LBP"}, {0x0426, "LSL"}, {0x0428, "LVL"}, {0x0430, "LRD"}, {0x0434, "LYD"},
    {0x0440, "LTL"}, {0x0442, "LUF"}, {0x0446, "MOP"}, {0x0450, "MGF"}, {0x0454, "MWK"},
    {0x0458, "MYR"}, {0x0462, "MVR"}, {0x0466, "MLF"}, {0x0470, "MTL"}, {0x0478, "MRO"},
    {0x0480, "MUR"}, {0x0484, "MXN"}, {0x0496, "MNT"}, {0x0498, "MDL"}, {0x0504, "MAD"},
    {0x0508, "MZM"}, {0x0512, "OMR"}, {0x0516, "NAD"}, {0x0524, "NPR"}, {0x0528, "NLG"},
    {0x0532, "XCG"}, {0x0532, "ANG"}, {0x0533, "AWG"}, {0x0548, "VUV"}, {0x0554, "NZD"},
    {0x0558, "NIO"}, {0x0566, "NGN"}, {0x0578, "NOK"}, {0x0586, "PKR"}, {0x0590, "PAB"},
    {0x0598, "PGK"}, {0x0600, "PYG"}, {0x0604, "PEN"}, {0x0608, "PHP"}, {0x0616, "PLZ"},
    {0x0620, "PTE"}, {0x0624, "GWP"}, {0x0626, "TPE"}, {0x0634, "QAR"}, {0x0642, "ROL"},
    {0x0643, "RUB"}, {0x0646, "RWF"}, {0x0654, "SHP"}, {0x0678, "STD"}, {0x0682, "SAR"},
    {0x0690, "SCR"}, {0x0694, "SLL"}, {0x0702, "SGD"}, {0x0703, "SKK"}, {0x0704, "VND"},
    {0x0705, "SIT"}, {0x0706, "SOS"}, {0x0710, "ZAR"}, {0x0716, "ZWD"}, {0x0720, "YDD"},
    {0x0724, "ESP"}, {0x0728, "SSP"}, {0x0736, "SDD"}, {0x0740, "SRG"}, {0x0748, "SZL"},
    {0x0752, "SEK"}, {0x0756, "CHF"}, {0x0760, "SYP"}, {0x0762, "TJR"}, {0x0764, "THB"},
    {0x0776, "TOP"}, {0x0780, "TTD"}, {0x0784, "AED"}, {0x0788, "TND"}, {0x0792, "TRL"},
    {0x0795, "TMM"}, {0x0800, "UGX"}, {0x0804, "UAK"}, {0x0807, "MKD"}, {0x0810, "RUR"},
    {0x0818, "EGP"}, {0x0826, "GBP"}, {0x0834, "TZS"}, {0x0840, "USD"}, {0x0858, "UYU"},
    {0x0860, "UZS"}, {0x0862, "VEB"}, {0x0882, "WST"}, {0x0886, "YER"}, {0x0890, "YUN"},
    {0x0891, "CSD"}, {0x0894, "ZMK"}, {0x0901, "TWD"}, {0x0924, "ZWG"}, {0x0925, "SLE"},
    {0x0926, "VED"}, {0x0927, "UYW"}, {0x0928, "VES"}, {0x0929, "MRU"}, {0x0930, "STN"},
    {0x0931, "CUC"}, {0x0932, "ZWL"}, {0x0933, "BYN"}, {0x0934, "TMT"}, {0x0935, "ZWR"},
    {0x0936, "GHS"}, {0x0937, "VEF"}, {0x0938, "SDG"}, {0x0940, "UYI"}, {0x0941, "RSD"},
    {0x0943, "MZN"}, {0x0944, "AZN"}, {0x0946, "RON"}, {0x0947, "CHE"}, {0x0948, "CHW"},
    {0x0949, "TRY"}, {0x0950, "XAF"}, {0x0951, "XCD"}, {0x0952, "XOF"}, {0x0953, "XPF"},
    {0x0954, "XEU"}, {0x0955, "XBA"}, {0x0956, "XBB"}, {0x0957, "XBC"}, {0x0958, "XBD"},
    {0x0959, "XAU"}, {0x0960, "XDR"}, {0x0961, "XAG"}, {0x0962, "XPT"}, {0x0963, "XTS"},
    {0x0964, "XPD"}, {0x0965, "XUA"}, {0x0967, "ZMW"}, {0x0968, "SRD"}, {0x0969, "MGA"},
    {0x0970, "COU"}, {0x0971, "AFN"}, {0x0972, "TJS"}, {0x0973, "AOA"}, {0x0974, "BYR"},
    {0x0975, "BGN"}, {0x0976, "CDF"}, {0x0977, "BAM"}, {0x0978, "EUR"}, {0x0979, "MXV"},
    {0x0980, "UAH"}, {0x0981, "GEL"}, {0x0982, "AOR"}, {0x0983, "ECV"}, {0x0984, "BOV"},
    {0x0985, "PLN"}, {0x0986, "BRL"}, {0x0987, "BRR"}, {0x0988, "LUL"}, {0x0989, "LUC"},
    {0x0990, "CLF"}, {0x0991, "ZAL"}, {0x0992, "BEL"}, {0x0993, "BEC"}, {0x0994, "XSU"},
    {0x0995, "ESB"}, {0x0996, "ESA"}, {0x0997, "USN"}, {0x0998, "USS"}, {0x0999, "XXX"},
};
// clang-format on
