// Renders the frames of a work list with lottie-web's SVG renderer in headless Chromium.
//
// Usage: node render_web.js JOBS_JSON LOTTIE_SCRIPT OUT_DIR
//   JOBS_JSON      the list prepare.py wrote
//   LOTTIE_SCRIPT  lottie-web's SVG build (lottie_svg.min.js)
//   OUT_DIR        gets <index>/<frame>.png (straight-alpha RGBA, transparent background) and
//                  web.json: per animation index, one line on why it failed ("failures") or on
//                  a script error in the page that did not stop it ("notes")
// Needs playwright-core on NODE_PATH; runs Chromium from $CHROMIUM (default /usr/bin/chromium).
//
// Each animation gets a fresh page showing nothing but a SIZE x SIZE box. The page can fetch
// nothing: a document can only show what it carries inline.
'use strict';
const fs = require('fs');
const path = require('path');
const { chromium } = require('playwright-core');

const SIZE = 250;
// Loading waits for lottie-web's own font check, which gives up after a few seconds; a document
// that keeps the page busy longer than this is given up on so that one cannot stall the run.
const ANIMATION_TIMEOUT_MS = 60000;
// A page stuck in a script may not close at once; past this the browser is restarted instead.
const CLOSE_TIMEOUT_MS = 5000;
const CHROMIUM_ARGS = [
  '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
  '--disable-background-networking', '--disable-component-update', '--disable-sync',
];

const PAGE = `<!DOCTYPE html>
<html><head><style>html, body { margin: 0; background: transparent; }</style></head>
<body><div id="stage" style="width:${SIZE}px;height:${SIZE}px;overflow:hidden"></div></body></html>`;

// Runs in the page: decodes the inlined pictures first, so that a frame never shows one
// half-loaded, then loads the animation stopped and resolves once lottie-web has built it.
function loadInPage(document) {
  const pictures = (document.assets || [])
    .filter((asset) => typeof asset.p === 'string' && asset.p.startsWith('data:'))
    .map((asset) => {
      const image = new Image();
      image.src = asset.p;
      return image.decode().catch(() => undefined);
    });
  return Promise.all(pictures).then(() => new Promise((resolve, reject) => {
    const animation = window.lottie.loadAnimation({
      container: window.document.getElementById('stage'),
      renderer: 'svg',
      loop: false,
      autoplay: false,
      animationData: document,
      rendererSettings: { preserveAspectRatio: 'xMidYMid meet' },
    });
    window.animation = animation;
    animation.addEventListener('DOMLoaded', () => resolve());
    animation.addEventListener('data_failed', () => reject(new Error('lottie-web data_failed')));
    animation.addEventListener('error', (event) => reject(new Error(String(event))));
  }));
}

// Runs in the page: shows frame `frame` (in point + frame) and waits until it is painted.
function showFrame(frame) {
  window.animation.goToAndStop(frame, true);
  const painted = () => new Promise((resolve) => requestAnimationFrame(() => resolve()));
  return painted().then(painted);
}

function withTimeout(promise, ms, what) {
  let timer;
  const expiry = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`${what} took longer than ${ms / 1000} s`)), ms);
  });
  return Promise.race([promise, expiry]).finally(() => clearTimeout(timer));
}

async function launch() {
  // Playwright starts Chromium --headless with a new empty profile (--user-data-dir) of its own.
  const browser = await chromium.launch({
    executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
    headless: true,
    args: CHROMIUM_ARGS,
  });
  const context = await browser.newContext({
    viewport: { width: SIZE, height: SIZE },
    deviceScaleFactor: 1,
    offline: true,
  });
  await context.route('**/*', (route) => route.abort());
  return { browser, context };
}

async function renderJob(context, lottieScript, job, document, outDir) {
  const page = await context.newPage();
  const errors = [];
  page.on('pageerror', (error) => errors.push(error.message));
  const work = (async () => {
    await page.setContent(PAGE);
    await page.addScriptTag({ path: lottieScript });
    await page.evaluate(loadInPage, document);
    for (const frame of job.frames) {
      await page.evaluate(showFrame, frame);
      await page.screenshot({
        path: path.join(outDir, `${frame}.png`),
        omitBackground: true,
        clip: { x: 0, y: 0, width: SIZE, height: SIZE },
      });
    }
  })();
  try {
    await withTimeout(work, ANIMATION_TIMEOUT_MS, 'rendering');
  } finally {
    work.catch(() => undefined);
    await withTimeout(page.close(), CLOSE_TIMEOUT_MS, 'closing the page');
  }
  return errors.length ? `page error: ${errors[0]}` : null;
}

async function main() {
  const [jobsFile, lottieScript, outRoot] = process.argv.slice(2);
  const { jobs } = JSON.parse(fs.readFileSync(jobsFile, 'utf8'));
  const failures = {};
  const notes = {};
  let session = await launch();
  for (const job of jobs.filter((j) => !j.error)) {
    const outDir = path.join(outRoot, String(job.index));
    fs.mkdirSync(outDir, { recursive: true });
    try {
      const document = JSON.parse(fs.readFileSync(job.document, 'utf8'));
      const note = await renderJob(session.context, lottieScript, job, document, outDir);
      if (note) {
        notes[job.index] = note;
      }
    } catch (error) {
      failures[job.index] = String(error.message || error).split('\n')[0];
      if (!session.browser.isConnected() || /closing the page/.test(failures[job.index])) {
        await session.browser.close().catch(() => undefined);
        session = await launch();
      }
    }
  }
  await session.browser.close();
  fs.writeFileSync(path.join(outRoot, 'web.json'), JSON.stringify({ failures, notes }, null, 1));
}

main().catch((error) => {
  console.error(`fidelity: lottie-web renderer: ${error.message || error}`);
  process.exit(1);
});
