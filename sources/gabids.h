// The dictionary of parameter tags: the dotted paths under which the parameters of a message stand in a
// store.
//
// A tag is known by its pointer, not by its text: whoever names a parameter passes one of the pointers below,
// and an equal text from somewhere else is an unknown tag. A text that was read from outside (a command line,
// a dump) becomes a pointer through zat::TagFromText.
#pragma once
#include "export.h"
#include <cstddef>
#include <string>
#include <string_view>

namespace zat {

// How much of a value may be seen by people: in a dump, in the output of a tool.
enum tTagShow : int {
  eTSplain,  // all of it
  eTSscan,   // free text or foreign data: all of it but runs of digits that could be a card number
  eTSlast4,  // card number, possibly with an expiry date behind '=': its last four digits
  eTShidden, // nothing but the length
};

} // namespace zat

// One row per tag: X(pointer, text, how much of the value may be seen). What is sensitive beside the track
// lives under "TR.S", so that the whole subtree can be found and removed as one.
#define GABIDS(X)                                                                                            \
  X(abisA7type, "A7.TYP", eTSplain)                                                                          \
  X(abisTRpan, "TR.S.PAN", eTSlast4)                                                                         \
  X(abisTRchq, "TR.CHQ", eTSplain)                                                                           \
  X(abisTRtr2, "TR.S.TR2", eTShidden)                                                                        \
  X(abisTRtyp, "TR.TYP", eTSplain)                                                                           \
  X(abisTRtypR, "TR.TPR", eTSplain)                                                                          \
  X(abisTRamt, "TR.AMT", eTSplain)                                                                           \
  X(abisTRdtt, "TR.DTT", eTSplain)                                                                           \
  X(abisTRedt, "TR.EDT", eTShidden)                                                                          \
  X(abisTRscd, "TR.SCD", eTShidden)                                                                          \
  X(abisA7trn, "A7.TRN", eTSplain)                                                                           \
  X(abisTRenm, "TR.ENM", eTSplain)                                                                           \
  X(abisA7chn, "A7.CHN", eTSplain)                                                                           \
  X(abisTRcnd, "TR.CND", eTSplain)                                                                           \
  X(abisTRpnb, "TR.PNB", eTShidden)                                                                          \
  X(abisTRpnm, "TR.PNM", eTShidden)                                                                          \
  X(abisTRrfn, "TR.RFN", eTSplain)                                                                           \
  X(abisTRacd, "TR.ACD", eTSplain)                                                                           \
  X(abisA7rcd, "A7.RCD", eTSplain)                                                                           \
  X(abisTMtid, "TM.TID", eTSplain)                                                                           \
  X(abisTMgid, "TM.GID", eTSplain)                                                                           \
  X(abisTMmid, "TM.MID", eTSplain)                                                                           \
  X(abisA7arc, "A7.ARC", eTSplain)                                                                           \
  X(abisA7r48, "A7.R48", eTSscan)                                                                            \
  X(abisA7msg, "A7.MSG", eTSscan)                                                                            \
  X(abisTRaam, "TR.AAM", eTSplain)                                                                           \
  X(abisTMinf, "TM.INF", eTSscan)                                                                            \
  X(abisTRram, "TR.RAM", eTSplain)                                                                           \
  X(abisA7123, "A7.123", eTSscan)                                                                            \
  X(abisTRcvv, "TR.S.CVV", eTShidden)                                                                        \
  X(abisA7emv, "A7.EMV", eTShidden)                                                                          \
  X(abisTRreg, "TR.REG", eTSplain)                                                                           \
  X(abisA7rst, "A7.RST", eTSplain)                                                                           \
  X(abis3Dxid, "3D.XID", eTSscan)                                                                            \
  X(abis3Dcav, "3D.CAV", eTShidden)                                                                          \
  X(abisA7lbl, "A7.LBL", eTSscan)                                                                            \
  X(abisTRsha, "TR.SHA", eTSscan)                                                                            \
  X(abisTRccd, "TR.CCD", eTSplain)                                                                           \
  X(abisEFcod, "EF.COD", eTSplain)                                                                           \
  X(abisEFrcd, "EF.RCD", eTSplain)                                                                           \
  X(abisEFctp, "EF.CTP", eTSplain)                                                                           \
  X(abisA7ctp, "A7.CTP", eTSplain)                                                                           \
  X(abisEFmsg, "EF.MSG", eTSscan)                                                                            \
  X(abisEFecd, "EF.ECD", eTSplain)                                                                           \
  X(abisEFsln, "EF.SLN", eTSplain)                                                                           \
  X(abisEFpln, "EF.PLN", eTSscan)                                                                            \
  X(abisEFfin, "EF.FIN", eTSplain)                                                                           \
  X(abisEFrep, "EF.REP", eTSplain)                                                                           \
  X(abisTRpex, "TR.PEX", eTSlast4)                                                                           \
  X(abisTMrtp, "TM.RTP", eTSplain)                                                                           \
  X(abisEFsbr, "EF.SBR", eTSplain)                                                                           \
  X(abisEFdtf, "EF.DTF", eTSplain)                                                                           \
  X(abisEFdtt, "EF.DTT", eTSplain)                                                                           \
  X(abisEFdtd, "EF.DTD", eTSscan)                                                                            \
  X(abisUPnum, "UP.NUM", eTSplain)                                                                           \
  X(abisUPucd, "UP.UCD", eTSplain)                                                                           \
  X(abisUPdtl, "UP.DTL", eTSscan)                                                                            \
  X(abisUPupd, "UP.UPD", eTSplain)                                                                           \
  X(abisCHnam, "CH.NAM", eTSscan)                                                                            \
  X(abisCHvam, "CH.VAM", eTSplain)                                                                           \
  X(abisCHnco, "CH.NCO", eTSplain)                                                                           \
  X(abisCHvco, "CH.VCO", eTSplain)                                                                           \
  X(abisTRmdt, "TR.MDT", eTSplain)                                                                           \
  X(abisEFlet, "EF.LET", eTSplain)                                                                           \
  X(abisEFled, "EF.LED", eTSscan)                                                                            \
  X(abisEFrad, "EF.RAD", eTSscan)                                                                            \
  X(abisTRsec, "TR.S", eTShidden)                                                                            \
  X(abisTRall, "TR", eTSscan)                                                                                \
  X(abisERlen, "ER.len", eTSplain)                                                                           \
  X(abisFKuni, "FK.UNI", eTSscan)                                                                            \
  X(abisFKupi, "FK.UPI", eTSscan)                                                                            \
  X(abisEFitp, "EF.ITP", eTSplain)                                                                           \
  X(abisEFidt, "EF.IDT", eTSscan)                                                                            \
  X(abisEFmcn, "EF.MCN", eTSscan)                                                                            \
  X(abisEFwid, "EF.WID", eTSplain)

#define GABIDS_DECLARE(name, text, show) ZAT_API extern const char* const name;
GABIDS(GABIDS_DECLARE)
#undef GABIDS_DECLARE

namespace zat {

struct tTag {
  const char* pccTag;  // the tag's pointer, which is also its text
  const char* pccName; // the pointer's own name, "abisTRamt"
  tTagShow oShow;
};

// The whole table in the order above; *plCount receives the number of rows. Never null.
ZAT_API const tTag* Tags(size_t* plCount);

// The row with this text, compared byte by byte; null for a text that is not in the dictionary.
ZAT_API const tTag* TagRow(std::string_view oText);

// The pointer with this text; null for a text that is not in the dictionary.
ZAT_API const char* TagFromText(std::string_view oText);

// What the first component of a tag groups ("TR": "transaction"), in English, for people; the whole tag may
// be given. Null for a group that the dictionary does not have.
ZAT_API const char* TagGroupText(std::string_view oTag);

// Replaces by '*' what nobody may see of a value under this path. A path that is not in the dictionary is
// hidden below "TR.S" and looked through for card numbers elsewhere.
ZAT_API void MaskValue(std::string_view oPath, std::string& oValue);

} // namespace zat
