// libqaven for Java: its entry points, and what the texts in their answers consist of.
//
// The loader finds the library by its usual ways: installed, or in a folder of LD_LIBRARY_PATH or of
// the property jna.library.path.
import com.google.gson.Gson;
import com.google.gson.reflect.TypeToken;
import com.sun.jna.Native;
import com.sun.jna.NativeLibrary;
import java.math.BigDecimal;
import java.nio.charset.Charset;
import java.nio.charset.StandardCharsets;
import java.util.*;

final class Qaven {
    static final List<String> CARD_FIELDS = List.of("card number", "cardholder name", "ID type",
        "ID number", "track 2 equivalent data", "track 1 discretionary data", "cash balance",
        "cash balance limit", "expiry date", "PAN sequence number", "single payment limit",
        "issuer's data", "issuer's data", "issuer's data", "issuer's data"); // of the letters A to O

    private static final int RESMSG_SIZE = 32768; // as in qaven.h: the library never writes more
    private static final int ERRMSG_SIZE = 19;
    private static final NativeLibrary LIBRARY = NativeLibrary.getInstance("libqaven.so.0");

    @SuppressWarnings("serial")
    static final class Failure extends Exception {
        Failure(String text) { super(text); }
    }

    static {
        LIBRARY.getFunction("initDriver").invokeInt(new Object[] {});
        Runtime.getRuntime().addShutdownHook(new Thread(
            () -> LIBRARY.getFunction("deinit").invokeInt(new Object[] {})));
    }

    /** Calls an entry point with a JSON object and gives the texts that it answers with. */
    static Map<String, String> call(String name, Map<String, ?> request) throws Failure {
        byte[] json = (new Gson().toJson(request) + '\0').getBytes(StandardCharsets.UTF_8);
        byte[] resmsg = new byte[RESMSG_SIZE];
        byte[] errmsg = new byte[ERRMSG_SIZE];
        int code = LIBRARY.getFunction(name).invokeInt(new Object[] {json, resmsg, errmsg, 0, 0});
        if (code != 0) {
            throw new Failure(name + ": " + code + " " + Native.toString(errmsg, "GBK"));
        }
        // Texts of a card may be GBK and their lengths count bytes: here, a character is a byte.
        return texts(Native.toString(resmsg, "ISO-8859-1"));
    }

    /** The members of a JSON object that has nothing but texts. */
    static Map<String, String> texts(String json) {
        return new Gson().fromJson(json, new TypeToken<Map<String, String>>() {}.getType());
    }

    /** Each character is worth its code minus 48: the length of track 2 may be "02/", which is 19. */
    private static int length(String characters) {
        return characters.chars().reduce(0, (length, code) -> 10 * length + code - 48);
    }

    /** The fields of a text that repeats: letter, three-digit length, value. */
    static List<Map.Entry<Character, String>> fields(String text) {
        List<Map.Entry<Character, String>> found = new ArrayList<>();
        for (int at = 0, end; at + 4 <= text.length(); at = end) {
            end = at + 4 + length(text.substring(at + 1, at + 4));
            byte[] value = text.substring(at + 4, end).getBytes(StandardCharsets.ISO_8859_1);
            found.add(Map.entry(text.charAt(at), new String(value, Charset.forName("GBK")).strip()));
        }
        return found;
    }

    /** A transaction log, the newest entry first, amounts with decimals; null if it is no log. */
    static List<Map<Character, String>> logEntries(String text) {
        List<Map<Character, String>> entries = new ArrayList<>();
        for (var field : fields(text.substring(Math.min(2, text.length())))) { // two bytes count
            if (field.getKey() == 'P') {
                entries.add(new HashMap<>());
            }
            entries.get(entries.size() - 1).put(field.getKey(), "PQ".indexOf(field.getKey()) < 0
                ? field.getValue() : new BigDecimal(field.getValue()).movePointLeft(2).toString());
        }
        return text.length() < 2 ? null : entries;
    }

    /** The value of a tag in a hex text that repeats: tag, length, value. */
    static String dataObject(String objects, String tag) {
        for (int at = 0, end; at < objects.length(); at = end) {
            boolean twoBytes = (Integer.parseInt(objects.substring(at, at + 2), 16) & 0x1F) == 0x1F;
            int value = at + (twoBytes ? 6 : 4); // behind tag and length
            end = value + 2 * Integer.parseInt(objects.substring(value - 2, value), 16);
            if (objects.substring(at, value - 2).equals(tag)) {
                return objects.substring(value, end);
            }
        }
        return "";
    }
}
