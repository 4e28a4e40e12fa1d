// A host program at a bank counter: one online transaction with the card in the reader.
//
// usage: Transaction ISSUER    ISSUER authorise ARQC  prints response code and response in hex
//                              ISSUER settle TC       ends with status 0 if the TC is accepted
// Exit status: 0 paid, 3 declined, 2 used wrongly, 1 anything else.
import java.io.IOException;
import java.util.Map;

final class Transaction {
    static final int PAID = 0, FAILED = 1, MISUSED = 2, DECLINED = 3;
    static final String APPLICATION = "A000000333010101";
    // 12.13 yuan, 22 April 2019, 16:13:55, at a merchant's counter: letter, length, value.
    static final String TRANSACTION =
        "P012000000001213R0040156S006190422T00203U006161355V013MRCH CNT 0001";

    static void tell(String what, String value) { System.out.printf("%-24s%s%n", what, value); }

    static String readCard(String letters, boolean arqc) throws Qaven.Failure {
        var answer = Qaven.call("QAVEN_getICCardInfo", Map.of("TagList", letters,
            "AIDList", APPLICATION, "aryInput", TRANSACTION, "isReadArqc", String.valueOf(arqc)));
        for (var field : Qaven.fields(answer.get("IcInfo"))) {
            tell(Qaven.CARD_FIELDS.get(field.getKey() - 'A'), field.getValue());
        }
        return answer.get("IcARQC");
    }

    /** What the issuer says; "refused" if it does not accept the message, or cannot be asked. */
    static String askIssuer(String issuer, String message, String data) throws Exception {
        try {
            Process process = new ProcessBuilder(issuer, message, data)
                .redirectError(ProcessBuilder.Redirect.INHERIT).start();
            String reply = new String(process.getInputStream().readAllBytes()).strip();
            return process.waitFor() == 0 ? reply : "refused";
        } catch (IOException failure) {
            System.err.println("no way to the issuer: " + failure.getMessage());
            return "refused";
        }
    }

    /** Whether the card has logged the transaction; null if there is no log to look into. */
    static Boolean isLogged(String counter) throws Exception {
        for (int tries = 0; tries < 10; ++tries) {
            var log = Qaven.logEntries(
                Qaven.call("QAVEN_GetTxDetail", Map.of("AIDList", APPLICATION)).get("TxDtailRet"));
            if (log != null) {
                log.forEach(entry -> tell("log entry", entry.get('X') + ": " + entry.get('P')
                    + " on " + entry.get('S') + ", " + entry.get('W')));
                return log.stream().anyMatch(entry -> entry.get('X').equals(counter));
            }
            Thread.sleep(1000); // a reader that was pulled out may take its time to come back
        }
        return null;
    }

    static int transact(String issuer, boolean mayRepeat) throws Exception {
        var request = Qaven.texts(readCard("|A|B|E|G|I|J|K", true));
        String counter = Qaven.dataObject(request.get("ARQC"), "9F36");
        tell("transaction", counter);
        String[] reply = askIssuer(issuer, "authorise", request.get("ARQC")).split(" ");
        tell("response code", reply[0]);
        if (reply.length != 2) {
            return FAILED;
        }
        boolean approved = reply[0].equals("00");
        var card = Qaven.call("QAVEN_ARPC_ExeICScript", Map.of("Txdata", TRANSACTION, "ARPC",
            reply[1], "LpAppData", request.get("LpAppData"), "Status", approved ? 0 : 1));
        tell("TC", card.get("TC"));
        tell("script result", card.get("Scriptresult"));
        boolean signed = !card.get("TC").isEmpty();
        boolean accepted = !signed || !askIssuer(issuer, "settle", card.get("TC")).equals("refused");
        Boolean logged = isLogged(counter);
        if (approved && !signed) { // broken off; only the log tells what the card made of it
            tell("broken off", Boolean.FALSE.equals(logged) ? "nothing paid" : "to be settled");
            return Boolean.FALSE.equals(logged) && mayRepeat ? transact(issuer, false) : FAILED;
        }
        readCard("|K", false); // which the issuer's script may have changed
        int outcome = approved ? PAID : DECLINED;
        return accepted && Boolean.valueOf(approved).equals(logged) ? outcome : FAILED;
    }

    public static void main(String[] arguments) throws Exception {
        if (arguments.length != 1) {
            System.err.println("usage: Transaction ISSUER");
            System.exit(MISUSED);
        }
        System.exit(transact(arguments[0], true));
    }
}
