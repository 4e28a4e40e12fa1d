// The Chinese texts of the bank-card path as GBK bytes, which is what hosts, counters' displays and
// the trace log expect. Source files are UTF-8, so the bytes are written as escapes, with the text
// beside them; a literal is split wherever a hexadecimal digit would otherwise join the escape
// before it.
#pragma once

namespace qaven::gbk {

// Descriptions of the error codes: laid out with blanks for a display of 18 columns. The blanks are
// part of the text.

// " 没有配置参数     "
inline constexpr char kNoConfiguration[] = " \xC3\xBB\xD3\xD0\xC5\xE4\xD6\xC3\xB2\xCE\xCA\xFD     ";
// " 没有指定的终端   "
inline constexpr char kNoSuchTerminal[] =
    " \xC3\xBB\xD3\xD0\xD6\xB8\xB6\xA8\xB5\xC4\xD6\xD5\xB6\xCB   ";
// " 没有打开指令     "
inline constexpr char kNoOpenCommand[] = " \xC3\xBB\xD3\xD0\xB4\xF2\xBF\xAA\xD6\xB8\xC1\xEE     ";
// " 没有关闭指令     "
inline constexpr char kNoCloseCommand[] = " \xC3\xBB\xD3\xD0\xB9\xD8\xB1\xD5\xD6\xB8\xC1\xEE     ";
// "                  "
inline constexpr char kNoDescription[] = "                  ";
// " 等待响应超时     "
inline constexpr char kResponseTimeout[] = " \xB5\xC8\xB4\xFD\xCF\xEC\xD3\xA6\xB3\xAC\xCA\xB1     ";
// " 无效设备句柄     "
inline constexpr char kInvalidDeviceHandle[] =
    " \xCE\xDE\xD0\xA7\xC9\xE8\xB1\xB8\xBE\xE4\xB1\xFA     ";
// " 卡未放好或多张卡 "
inline constexpr char kCardNotSeated[] =
    " \xBF\xA8\xCE\xB4\xB7\xC5\xBA\xC3\xBB\xF2\xB6\xE0\xD5\xC5\xBF\xA8 ";
// " 无效的卡片       "
inline constexpr char kInvalidCard[] = " \xCE\xDE\xD0\xA7\xB5\xC4\xBF\xA8\xC6\xAC       ";
// " 数据非法         "
inline constexpr char kIllegalData[] = " \xCA\xFD\xBE\xDD\xB7\xC7\xB7\xA8         ";
// " 执行 AUXPREF 失败"
inline constexpr char kAuxprefFailed[] = " \xD6\xB4\xD0\xD0 AUXPREF \xCA\xA7\xB0\xDC";
// " 执行 AUXSUFF 失败"
inline constexpr char kAuxsuffFailed[] = " \xD6\xB4\xD0\xD0 AUXSUFF \xCA\xA7\xB0\xDC";
// The last word is said twice: counter staff and hosts know the text in this form.
// " 写数据失败失败   "
inline constexpr char kWriteFailed[] =
    " \xD0\xB4\xCA\xFD\xBE\xDD\xCA\xA7\xB0\xDC\xCA\xA7\xB0\xDC   ";
// " 设备无响应       "
inline constexpr char kDeviceSilent[] = " \xC9\xE8\xB1\xB8\xCE\xDE\xCF\xEC\xD3\xA6       ";
// " 取辅口参数失败   "
inline constexpr char kGetAuxiliaryPortFailed[] =
    " \xC8\xA1\xB8\xA8\xBF\xDA\xB2\xCE\xCA\xFD\xCA\xA7\xB0\xDC   ";
// " 置辅口参数失败   "
inline constexpr char kSetAuxiliaryPortFailed[] =
    " \xD6\xC3\xB8\xA8\xBF\xDA\xB2\xCE\xCA\xFD\xCA\xA7\xB0\xDC   ";
// " 没有找到CDOL2    "
inline constexpr char kNoCdol2[] = " \xC3\xBB\xD3\xD0\xD5\xD2\xB5\xBD"
                                   "CDOL2    ";
// The one text that is not 18 bytes long: it ends in two blanks, a tab and a blank.
// " 没有生成TC  \t "
inline constexpr char kNoTc[] = " \xC3\xBB\xD3\xD0\xC9\xFA\xB3\xC9TC  \t ";
// " 没有找到标签     "
inline constexpr char kNoTag[] = " \xC3\xBB\xD3\xD0\xD5\xD2\xB5\xBD\xB1\xEA\xC7\xA9     ";
// " 空数据或非法数据 "
inline constexpr char kEmptyOrIllegalData[] =
    " \xBF\xD5\xCA\xFD\xBE\xDD\xBB\xF2\xB7\xC7\xB7\xA8\xCA\xFD\xBE\xDD ";
// " 没有标签91的数据 "
inline constexpr char kNoTag91[] = " \xC3\xBB\xD3\xD0\xB1\xEA\xC7\xA9"
                                   "91\xB5\xC4\xCA\xFD\xBE\xDD ";
// " 没有标签80的数据 "
inline constexpr char kNoTag80[] = " \xC3\xBB\xD3\xD0\xB1\xEA\xC7\xA9"
                                   "80\xB5\xC4\xCA\xFD\xBE\xDD ";

// Failures of a whole step, as hosts read them in errmsg.

// "获取IC卡信息失败"
inline constexpr char kGetCardInfoFailed[] =
    "\xBB\xF1\xC8\xA1IC\xBF\xA8\xD0\xC5\xCF\xA2\xCA\xA7\xB0\xDC";
// "获取ARQC失败"
inline constexpr char kGetArqcFailed[] = "\xBB\xF1\xC8\xA1"
                                         "ARQC\xCA\xA7\xB0\xDC";

// Terminal data: the merchant name and location when the host names none.

// "示例商户名"
inline constexpr char kExampleMerchantName[] = "\xCA\xBE\xC0\xFD\xC9\xCC\xBB\xA7\xC3\xFB";

// Trace lines of reading the card information.

// "--- 取卡信息 ---\r\n"
inline constexpr char kCardInfoTitle[] = "--- \xC8\xA1\xBF\xA8\xD0\xC5\xCF\xA2 ---\r\n";
// "--- 应用选择 ---\r\n"
inline constexpr char kSelectionTitle[] = "--- \xD3\xA6\xD3\xC3\xD1\xA1\xD4\xF1 ---\r\n";

// Trace lines of generating the ARQC. Names that end in Format are printf formats.

// "输入的查询数据[ASCII]：lpicappdata:%s\n"
inline constexpr char kQueryDataFormat[] =
    "\xCA\xE4\xC8\xEB\xB5\xC4\xB2\xE9\xD1\xAF\xCA\xFD\xBE\xDD[ASCII]\xA3\xBAlpicappdata:%s\n";
// "输入的交易数据[ASCII]TxData:%s\n"
inline constexpr char kTxDataFormat[] =
    "\xCA\xE4\xC8\xEB\xB5\xC4\xBD\xBB\xD2\xD7\xCA\xFD\xBE\xDD[ASCII]TxData:%s\n";
// "补全的交易数据：tmptransdata:%s\n"
inline constexpr char kCompletedTxDataFormat[] =
    "\xB2\xB9\xC8\xAB\xB5\xC4\xBD\xBB\xD2\xD7\xCA\xFD\xBE\xDD\xA3\xBAtmptransdata:%s\n";
// "\r\n --- 查找CDOL1之前的读应用返回数据---\r\n"
inline constexpr char kDataBeforeCdol1Title[] =
    "\r\n --- \xB2\xE9\xD5\xD2"
    "CDOL1\xD6\xAE\xC7\xB0\xB5\xC4\xB6\xC1\xD3\xA6\xD3\xC3\xB7\xB5\xBB\xD8\xCA\xFD\xBE\xDD---\r\n";
// "产生ARQC失败（密文不为0x80)! temp返回是%02X\n"
inline constexpr char kNotAnArqcFormat[] =
    "\xB2\xFA\xC9\xFA"
    "ARQC\xCA\xA7\xB0\xDC\xA3\xA8\xC3\xDC\xCE\xC4\xB2\xBB\xCE\xAA"
    "0x80)! temp\xB7\xB5\xBB\xD8\xCA\xC7%02X\n";
// "发卡行应用数据"
inline constexpr char kIssuerApplicationData[] =
    "\xB7\xA2\xBF\xA8\xD0\xD0\xD3\xA6\xD3\xC3\xCA\xFD\xBE\xDD";
// "终端验证结果"
inline constexpr char kTerminalVerificationResults[] =
    "\xD6\xD5\xB6\xCB\xD1\xE9\xD6\xA4\xBD\xE1\xB9\xFB";
// "交易类型"
inline constexpr char kTransactionType[] = "\xBD\xBB\xD2\xD7\xC0\xE0\xD0\xCD";
// "授权金额"
inline constexpr char kAuthorisedAmount[] = "\xCA\xDA\xC8\xA8\xBD\xF0\xB6\xEE";
// "卡产品标识 qmcx_gettagvalue ireturn:%d\n"
inline constexpr char kCardProductFormat[] =
    "\xBF\xA8\xB2\xFA\xC6\xB7\xB1\xEA\xCA\xB6 qmcx_gettagvalue ireturn:%d\n";
// "\nARQC长度:ARQCLen=%d\n"
inline constexpr char kArqcLengthFormat[] = "\nARQC\xB3\xA4\xB6\xC8:ARQCLen=%d\n";
// "ARQC数据:ARQC=%s\n"
inline constexpr char kArqcDataFormat[] = "ARQC\xCA\xFD\xBE\xDD:ARQC=%s\n";
// "-获取ARQC失败-\n"
inline constexpr char kGetArqcFailedTrace[] = "-\xBB\xF1\xC8\xA1"
                                              "ARQC\xCA\xA7\xB0\xDC-\n";

} // namespace qaven::gbk
