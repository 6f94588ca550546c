#include "operations.h"
#include "cp1251.h"

namespace zat {

// Codes of the terminal's own; those that begin with a letter are translated by the cash-desk library.
const tRefusal oNotUnderstood = {"I1", "Incorrect request format"};
const tRefusal oBadCard = {"I2", "Incorrect card answer format"};
const tRefusal oNotFound = {"25", "ОПЕРАЦИЯ НЕ НАЙДЕНА"_1251};
const tRefusal oNotAllowed = {"12", "ОПЕРАЦИЯ НЕДОПУСТИМА"_1251};
const tRefusal oWrongAmount = {"13", "НЕВЕРНАЯ СУММА"_1251};
const tRefusal oNotStored = {"96", "ЖУРНАЛ ДНЯ НЕ ЗАПИСАН"_1251};

namespace {

constexpr unsigned kCard = eOpin | eOonline;

const tOperation moOperations[] = {
    {eEFTPwidSale, AnswerPayment, eKsale, kCard, "ОПЛАТА"_1251},
    {eEFTPwidPreA, AnswerPayment, eKpreauth, kCard, "ПРЕДАВТОРИЗАЦИЯ"_1251},
    {eEFTPwidCashA, AnswerPayment, eKcash, kCard, "ВЫДАЧА НАЛИЧНЫХ"_1251},
    {eEFTPwidMailO, AnswerPayment, eKsale, eOonline, "ОПЛАТА ПО ПОЧТЕ"_1251},
    {eEFTPwidCredit, AnswerPayment, eKcredit, eOonline, "ВОЗВРАТ"_1251},
    {eEFTPwidEComm, AnswerPayment, eKsale, eOonline, "ОПЛАТА В ИНТЕРНЕТЕ"_1251},
    {eEFTPwidOfSl, AnswerPayment, eKsale, 0, "ОПЛАТА БЕЗ СВЯЗИ"_1251},
    {eEFTPwidOfCs, AnswerPayment, eKcash, 0, "НАЛИЧНЫЕ БЕЗ СВЯЗИ"_1251},
    {eEFTPwidRecurring, AnswerPayment, eKsale, eOonline, "РЕГУЛЯРНЫЙ ПЛАТЁЖ"_1251},
    {eEFTPwidVoid, AnswerVoid, eKnone, eOonline, "АННУЛИРОВАНИЕ"_1251},
    {eEFTPwidRevSale, AnswerReversal, eKsale, eOonline, "ОТМЕНА ОПЛАТЫ"_1251},
    {eEFTPwidRevCredit, AnswerReversal, eKcredit, eOonline, "ОТМЕНА ВОЗВРАТА"_1251},
    {eEFTPwidRevCash, AnswerReversal, eKcash, eOonline, "ОТМЕНА ВЫДАЧИ"_1251},
    {eEFTPwidSale_B, AnswerPayment, eKsale, kCard, "ОПЛАТА БОНУСАМИ"_1251},
    {eEFTPwidOfSl_B, AnswerPayment, eKsale, 0, "БОНУСЫ БЕЗ СВЯЗИ"_1251},
    {eEFTPwidCredit_B, AnswerPayment, eKcredit, eOonline, "ВОЗВРАТ БОНУСОВ"_1251},
    {eEFTPwidRevSale_B, AnswerReversal, eKsale, eOonline, "ОТМЕНА ОПЛАТЫ БОНУСАМИ"_1251},
    {eEFTPwidRevCredit_B, AnswerReversal, eKcredit, eOonline, "ОТМЕНА ВОЗВРАТА БОНУСОВ"_1251},
    {eEFTPwidCash_B, AnswerPayment, eKcash, kCard, "ВЫДАЧА БОНУСОВ"_1251},
    {eEFTPwidVerify, AnswerPayment, eKinfo, kCard, "ПРОВЕРКА КАРТЫ"_1251},
    {eEFTPwidCreditOn, AnswerPayment, eKcredit, eOonline, "ВОЗВРАТ"_1251},
    {eEFTPwidBalanceI, AnswerPayment, eKinfo, kCard, "ЗАПРОС ОСТАТКА"_1251},
    {eEFTPwidInfo_B, AnswerPayment, eKinfo, eOonline, "СВЕДЕНИЯ О БОНУСАХ"_1251},
    {eEFTPwidDebit_B, AnswerPayment, eKsale, kCard, "СПИСАНИЕ БОНУСОВ"_1251},
    {eEFTPwidRevInfo_B, AnswerPayment, eKinfo, eOonline, "ОТМЕНА СВЕДЕНИЙ"_1251},
    {eEFTPwidActiv, AnswerPayment, eKinfo, eOonline, "АКТИВАЦИЯ КАРТЫ"_1251},
    {eEFTPwidActivLoad, AnswerPayment, eKsale, eOonline, "АКТИВАЦИЯ И ПОПОЛНЕНИЕ"_1251},
    {eEFTPwidTransDt, AnswerRepeat, eKnone, 0, "КОПИЯ"_1251},
    {eEFTPwidFinDay, AnswerEndOfDay, eKnone, eOanyData, "СВЕРКА ИТОГОВ"_1251},
    {eEFTPwidFinAmount, AnswerTotals, eKnone, eOanyData, "ПРОМЕЖУТОЧНЫЕ ИТОГИ"_1251},
    {eEFTPwidRepDay, AnswerReport, eKnone, eOanyData, "ОТЧЁТ ПО ОПЕРАЦИЯМ"_1251},
    {eEFTPwidTransConf, AnswerConfirmation, eKnone, 0, ""},
    {eEFTPwidLogin, AnswerLogin, eKnone, eOanyData, ""},
    {eEFTPwidBrkReq, AnswerBreak, eKnone, eOanyData, ""},
    {eEFTPwidDtaReq, AnswerDataRequest, eKnone, 0, ""},
    {eEFTPwidClRefSale, AnswerClosing, eKsale, eOonline, "ЗАВЕРШЕНИЕ ОПЛАТЫ"_1251},
    {eEFTPwidClRefRreA, AnswerClosing, eKpreauth, eOonline, "ЗАВЕРШЕНИЕ ПРЕДАВТОРИЗАЦИИ"_1251},
    {eEFTPwidClRefCred, AnswerClosing, eKcredit, eOonline, "ЗАВЕРШЕНИЕ ВОЗВРАТА"_1251},
    {eEFTPwidClRefOffS, AnswerClosing, eKsale, eOonline, "ЗАВЕРШЕНИЕ ОПЛАТЫ БЕЗ СВЯЗИ"_1251},
    {eEFTPwidClRefRevs, AnswerClosing, eKnone, eOonline, "ЗАВЕРШЕНИЕ ОТМЕНЫ"_1251},
};

const tOperation oUnknown = {eEFTPwidNone, nullptr, eKnone, 0, ""};

} // namespace

const tOperation* FindOperation(tEFTPWorkId oWId) {
  for (const tOperation& o : moOperations)
    if (o.oWId == oWId) return &o;
  return nullptr;
}

void AnswerRequest(tTalk& oTalk, tRequest& oReq, const tString& oRoot) {
  const tOperation* po = FindOperation(oReq.oWId);
  tCase oCase{oTalk, oReq, po ? *po : oUnknown, oRoot};
  if (po && (oReq.fGood || (po->uFlags & eOanyData)))
    po->Answer(oCase);
  else
    Refuse(oCase, oNotUnderstood);
}

void Refuse(tCase& oCase, const tRefusal& oWhy) {
  tFields oFields(abisEFecd, oWhy.pccCode);
  oCase.oTalk.Say(eEFTPwidRubad, oFields.Put(abisEFmsg, oWhy.pccText));
  oCase.oTalk.End(false);
}

} // namespace zat
