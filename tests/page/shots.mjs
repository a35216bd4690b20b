// Pictures of pages, for looking at while they change.
// Usage: [LOOK=390light] node shots.mjs FOLDER [PATH...]   (PAGE_URL: of a gateway that runs)
import { mkdirSync } from "node:fs";
import { join } from "node:path";
import { setTimeout as pause } from "node:timers/promises";
import { openBrowser } from "./browser.mjs";
import { Fleet } from "./fleet.mjs";
import { dress, looks, picture } from "./looks.mjs";
import { serve } from "./mock.mjs";

const [folder, ...paths] = process.argv.slice(2);
const { LOOK: only, PAGE_URL: given } = process.env;
mkdirSync(folder, { recursive: true });
const mock = given ? null : await serve({ fleet: new Fleet({ count: 24 }) });
const { browser, close } = await openBrowser();
const page = await browser.newPage();
page.on("console", (message) => console.log("console:", message.text()));
page.on("pageerror", (error) => console.log("error:", error.stack));
for (const path of paths.length ? paths : ["/", "/station/BERL"])
    for (const look of looks.filter((l) => !only || `${l.width}${l.scheme}` === only)) {
        await dress(page, look);
        await page.goto((given ?? mock.address) + path);
        await page.waitForSelector("body[data-link=live]");
        await pause(500);
        const name = path.replace(/\W+/g, "-").replace(/^-|-$/g, "") || "fleet";
        await picture(page, join(folder, `${name}-${look.width}-${look.scheme}.png`));
    }
await close();
await mock?.close();
