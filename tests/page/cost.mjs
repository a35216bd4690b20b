// What the page of all stations of a gateway costs a browser, for bench/pages.
// Usage: node cost.mjs ADDRESS
import { openBrowser } from "./browser.mjs";
import { costOfFleet, dress, looks } from "./looks.mjs";

const { browser, close } = await openBrowser();
try {
    const page = await browser.newPage();
    await dress(page, looks.find((l) => l.width === 1280));
    const cost = await costOfFleet(page, process.argv[2]);
    console.log(`first-paint-ms ${cost.firstPaintMs.toFixed(1)}\nlongest-update-ms ${cost.longestUpdateMs.toFixed(1)}`);
    for (const line of cost.told) console.log(line);
} finally {
    await close();
}
