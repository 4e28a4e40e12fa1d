// libqaven for Node.js: its entry points, and what the texts in their answers consist of.
//
// The loader finds the library by its usual ways: installed, or in a folder of LD_LIBRARY_PATH.
import koffi from "koffi";

const RESMSG_SIZE = 32768; // as in qaven.h: the library never writes more
const ERRMSG_SIZE = 19;

export const CARD_FIELDS = {
  A: "card number", B: "cardholder name", C: "ID type", D: "ID number",
  E: "track 2 equivalent data", F: "track 1 discretionary data", G: "cash balance",
  H: "cash balance limit", I: "expiry date", J: "PAN sequence number",
  K: "single payment limit", L: "issuer's data", M: "issuer's data", N: "issuer's data",
  O: "issuer's data",
};

const library = koffi.load("libqaven.so.0");
library.func("int initDriver()")();
process.on("exit", library.func("int deinit()"));

const fromGbk = (bytes) => new TextDecoder("gbk").decode(bytes);

// Calls an entry point with a JSON object and gives the JSON object that it answers with.
export function call(name, request) {
  const entryPoint = library.func(name, "int", ["str", "void *", "void *", "int", "int"]);
  const resmsg = Buffer.alloc(RESMSG_SIZE);
  const errmsg = Buffer.alloc(ERRMSG_SIZE);
  const code = entryPoint(JSON.stringify(request), resmsg, errmsg, 0, 0);
  if (code !== 0) {
    throw new Error(`${name}: ${code} ${fromGbk(errmsg.subarray(0, errmsg.indexOf(0)))}`);
  }
  // Texts of a card may be GBK and their lengths count bytes: here, a character is a byte.
  return JSON.parse(resmsg.toString("latin1", 0, resmsg.indexOf(0)));
}

// Each character is worth its code minus 48: the length of track 2 may be "02/", which is 19.
const length = (characters) =>
  [...characters].reduce((length, character) => 10 * length + character.charCodeAt(0) - 48, 0);

// The fields of a text that repeats: letter, three-digit length, value.
export function fields(text) {
  const found = [];
  for (let at = 0; at + 4 <= text.length;) {
    const end = at + 4 + length(text.slice(at + 1, at + 4));
    found.push([text[at], fromGbk(Buffer.from(text.slice(at + 4, end), "latin1")).trim()]);
    at = end;
  }
  return found;
}

// A transaction log, the newest entry first, amounts with decimals; null if it is no log.
export function logEntries(text) {
  if (text.length < 2) {
    return null;
  }
  const entries = [];
  for (const [letter, value] of fields(text.slice(2))) { // behind two bytes that count
    if (letter === "P") {
      entries.push({});
    }
    entries.at(-1)[letter] = "PQ".includes(letter) ? (Number(value) / 100).toFixed(2) : value;
  }
  return entries;
}

// The value of a tag in a hex text that repeats: tag, length, value.
export function dataObject(objects, tag) {
  while (objects) {
    const head = (parseInt(objects.slice(0, 2), 16) & 0x1f) === 0x1f ? 6 : 4; // tag and length
    const end = head + 2 * parseInt(objects.slice(head - 2, head), 16);
    if (objects.slice(0, head - 2) === tag) {
      return objects.slice(head, end);
    }
    objects = objects.slice(end);
  }
  return "";
}
