// A host program at a bank counter: one online transaction with the card in the reader.
//
// usage: node transaction.mjs ISSUER    ISSUER authorise ARQC  prints response code, response in hex
//                                       ISSUER settle TC       ends with status 0 if it is accepted
// Exit status: 0 paid, 3 declined, 2 used wrongly, 1 anything else.
import { spawnSync } from "node:child_process";
import { setTimeout } from "node:timers/promises";
import * as qaven from "./qaven.mjs";

const PAID = 0, FAILED = 1, MISUSED = 2, DECLINED = 3;
const APPLICATION = "A000000333010101";
// 12.13 yuan, 22 April 2019, 16:13:55, at a merchant's counter: letter, three-digit length, value.
const TRANSACTION = "P012000000001213R0040156S006190422T00203U006161355V013MRCH CNT 0001";

const tell = (what, value) => console.log(what.padEnd(24) + value);

function readCard(letters, transaction = "") {
  const answer = qaven.call("QAVEN_getICCardInfo", {
    TagList: letters, AIDList: APPLICATION,
    aryInput: transaction, isReadArqc: transaction ? "true" : "false",
  });
  for (const [letter, value] of qaven.fields(answer.IcInfo)) {
    tell(qaven.CARD_FIELDS[letter], value);
  }
  return JSON.parse(answer.IcARQC || "{}");
}

function askIssuer(message, data) {
  const online = spawnSync(process.argv[2], [message, data],
    { encoding: "latin1", stdio: ["ignore", "pipe", "inherit"] });
  if (online.error) {
    console.error(`no way to the issuer: ${online.error.message}`);
  }
  return online;
}

// Whether the card has logged the transaction; null if there is no log to look into.
async function isLogged(counter) {
  for (let tries = 0; tries < 10; ++tries) {
    const log = qaven.logEntries(
      qaven.call("QAVEN_GetTxDetail", { AIDList: APPLICATION }).TxDtailRet);
    if (log !== null) {
      log.forEach((entry) => tell("log entry", `${entry.X}: ${entry.P} on ${entry.S}, ${entry.W}`));
      return log.some((entry) => entry.X === counter);
    }
    await setTimeout(1000); // a reader that was pulled out may take its time to come back
  }
  return null;
}

async function transact(mayRepeat = true) {
  const request = readCard("|A|B|E|G|I|J|K", TRANSACTION);
  const counter = qaven.dataObject(request.ARQC, "9F36");
  tell("transaction", counter);
  const online = askIssuer("authorise", request.ARQC);
  if (online.status !== 0) {
    return FAILED;
  }
  const [code, response] = online.stdout.trim().split(" ");
  const approved = code === "00";
  tell("response code", code);
  const card = qaven.call("QAVEN_ARPC_ExeICScript", {
    Txdata: TRANSACTION, LpAppData: request.LpAppData, ARPC: response, Status: approved ? 0 : 1,
  });
  tell("TC", card.TC);
  tell("script result", card.Scriptresult);
  const accepted = !card.TC || askIssuer("settle", card.TC).status === 0;
  const logged = await isLogged(counter);
  if (approved && !card.TC) { // broken off; only the log tells what the card made of it
    tell("broken off", logged === false ? "nothing paid" : "to be settled");
    return logged === false && mayRepeat ? transact(false) : FAILED;
  }
  readCard("|K"); // which the issuer's script may have changed
  const outcome = approved ? PAID : DECLINED;
  return accepted && logged === approved ? outcome : FAILED;
}

if (process.argv.length !== 3) {
  console.error("usage: node transaction.mjs ISSUER");
  process.exit(MISUSED);
}
process.exitCode = await transact().catch((failure) => {
  console.error(`no card was read: ${failure.message}`);
  return FAILED;
});
