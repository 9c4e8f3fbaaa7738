// Plays a stream with hls.js in headless Chromium until the video's
// currentTime passes a mark, or an error ends it; keeps a screenshot.
//   node hlsjs-play.js PLAYWRIGHT_DIR PAGE_URL PROFILE_DIR SCREENSHOT SECONDS TIMEOUT_SECONDS
// Exits 0 when the mark was passed with no fatal error.
const [playwrightDir, pageUrl, profileDir, screenshot, seconds, timeoutSeconds] = process.argv.slice(2);
const { chromium } = require(`${playwrightDir}/node_modules/playwright-core`);

(async () => {
  const context = await chromium.launchPersistentContext(profileDir, {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: ['--no-sandbox', '--disable-gpu', '--disable-background-networking', '--disable-component-update',
           '--disable-sync', '--no-first-run', '--autoplay-policy=no-user-gesture-required'],
  });
  let status = 1;
  const page = context.pages()[0] || await context.newPage();
  try {
    page.on('console', (message) => console.log(`page: ${message.text()}`));
    await page.goto(pageUrl);
    await page.waitForFunction(
      (mark) => document.getElementById('video').currentTime > mark || window.playState.fatal.length > 0,
      Number(seconds), {timeout: Number(timeoutSeconds) * 1000, polling: 250});
    const state = await page.evaluate(() => ({
      time: document.getElementById('video').currentTime, ...window.playState}));
    await page.screenshot({path: screenshot});
    console.log(`browser: currentTime ${state.time.toFixed(1)} s, fatal errors: ${JSON.stringify(state.fatal)}, ` +
                `warnings: ${JSON.stringify(state.warnings)}`);
    status = state.fatal.length === 0 && state.time > Number(seconds) ? 0 : 1;
  } catch (error) {
    console.log(`browser: ${error.message}`);
    await page.screenshot({path: screenshot}).catch(() => {});
  } finally {
    await context.close();
  }
  process.exit(status);
})();
