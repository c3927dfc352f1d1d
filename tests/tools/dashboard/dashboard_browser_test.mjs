// information_collector's dashboard in a real browser. The collector is
// filled with records stored before it starts (their facts are taken on
// start), the records the demo host writes (sent by information_uploader), a
// file upload, and records posted to it, the last one hostile. Then the page
// must show the right totals per type, draw every chart with data, show a
// record's JSON after a click, change its counts with each filter, and keep
// the hostile texts as text. A screenshot goes to SCREENSHOT.
//   node dashboard_browser_test.mjs BROWSER COLLECTOR UPLOADER RECORDER SCREENSHOT
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { chromium } from 'playwright-core';

const [browserPath, collectorPath, uploaderPath, recorderPath, screenshot] =
  process.argv.slice(2).map((argument) => path.resolve(argument));
const testApp = '3c1f9a7e55d04b28a6e2f0b9d4c87a13';
const releaseApp = 'a94e07b3c2d851f6e0b7a4c39d2f6e58';
const work = fs.mkdtempSync(path.join(os.tmpdir(), 'dashboard_test_'));
const database = path.join(work, 'collector.sqlite');
const host = path.join(work, 'host');
const children = [];
let checks = 0;
async function check(what, test) {
  await test();
  console.log(`ok ${++checks} - ${what}`);
}
const deadline = (ms) => Date.now() + ms;
const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

function start(program, args, cwd = work) {
  const child = spawn(program, args, { cwd, stdio: ['ignore', 'pipe', 'pipe'] });
  child.output = '';
  child.stdout.on('data', (data) => { child.output += data; });
  child.stderr.on('data', (data) => { child.output += data; });
  child.ended = new Promise((resolve) => child.on('exit', resolve));
  child.on('error', (error) => { child.output += error.message; });
  children.push(child);
  return child;
}

async function waitFor(what, condition, ms = 20000) {
  for (const end = deadline(ms); Date.now() < end; await pause(50)) if (await condition()) return;
  throw new Error(`timed out waiting for ${what}`);
}

async function startCollector() {
  const collector = start(collectorPath, ['--port', '0', '--database', database]);
  await waitFor('the collector', () => /listening on (http:\/\/127\.0\.0\.1:\d+)/.test(collector.output));
  collector.url = collector.output.match(/listening on (http:\/\/127\.0\.0\.1:\d+)/)[1];
  return collector;
}

// The exit code.
function stop(child) {
  child.kill('SIGTERM');
  return child.ended;
}

// Records as hosts send them, of every type, from several machines.
const types = ['usage', 'usage', 'usage', 'usage', 'usage', 'scan', 'scan', 'calibration', 'score', 'feedback'];
function generated(i) {
  const type = types[i % types.length];
  const body = {
    modelName: ['scanner-a', 'scanner-b'][i % 2], softwareVer: ['1.4.2', '1.5.0', '2.0.0'][i % 3],
    tracingType: type,
    osSoftExt: { osName: ['Windows 10 Pro', 'Windows 11 Pro', 'Windows 11 Home'][i % 3],
      lang: ['en_US', 'de_DE', 'ja_JP', 'fr_FR'][i % 4], resolution: ['1920*1080', '2560*1440'][i % 2] },
    osHdExt: { cpu: [{ cpuCores: 8, cpuModel: ['AMD Ryzen 7 7700X', 'Intel(R) Core(TM) i7-12700K'][i % 2] }],
      memSize: [8, 16, 32, 64][i % 4] * 2 ** 30, gpu: [{ gpuModel: ['NVIDIA GeForce RTX 3060', 'AMD Radeon RX 6800'][i % 2] }] },
    modularExt: { ple: 'scanner-R550.ple', modular: [{ name: 'turntable', sn: '', mple: ['turntable-01.ple', 'handheld-02.ple'][i % 2] }] },
  };
  if (type === 'score') body.content = { score: i % 11, industry: 'art' };
  if (type === 'feedback') body.content = { email: `user${i}@example.com`, industry: 'art', content: `Feedback number ${i}.`, attachs: ['shot.png'] };
  return { type, app: i % 4 === 0 ? releaseApp : testApp, body };
}

const hostile = {
  type: 'feedback', app: testApp,
  body: { modelName: '<img src=x onerror="window.__pwned=1">', softwareVer: '"><svg onload="window.__pwned=1">',
    osSoftExt: { osName: '<img src=x onerror="window.__pwned=1">' },
    content: { email: '<a href="javascript:window.__pwned=1">mail</a>', content: '<script>window.__pwned=1</script>', attachs: ['<b>x</b>'] } },
};

async function main() {
  // The demo host writes its records while the collector is prepared.
  fs.mkdirSync(path.join(host, 'res'), { recursive: true });
  const recorder = start(recorderPath, [], host);

  // Records stored by an earlier collector, received 1 to 60 days ago.
  await stop(await startCollector());
  const stored = Array.from({ length: 1500 }, (_, i) => generated(i));
  // An older collector took this; Qt's parser would leak it (see the end).
  stored.push({ type: 'usage', app: testApp, raw: '{"osSoftExt":{"osName":"x"},"osSoftExt":{"osName":"y"}}' });
  const quoted = (text) => `'${text.replaceAll("'", "''")}'`;
  const rows = stored.map((record, i) => `(${quoted(new Date(Date.now() - (1 + i % 60) * 86400e3).toISOString().slice(0, 19) + 'Z')}, ` +
    `${quoted(record.app)}, ${quoted(record.type)}, ${quoted(record.raw ?? JSON.stringify(record.body))})`);
  execFileSync('sqlite3', [database], { input: `BEGIN; INSERT INTO information (received_at, app_id, type, body) VALUES ${rows.join(',\n')}; COMMIT;` });
  const collector = await startCollector();
  await check('the collector takes the facts of the stored records on start',
    () => assert.match(collector.output, /figures taken from 1501 stored records/));

  // The demo host's records, and a file, through information_uploader.
  assert.equal(await recorder.ended, 0, recorder.output);
  fs.writeFileSync(path.join(host, 'res/system.ini'), '[General]\nenable=1\ntime_intval=60\ntest=0\nconnect_time=5\nremain=30\n');
  fs.writeFileSync(path.join(host, 'url_config.ini'), `[General]\nupload_url=${collector.url}/dtta\n`);
  fs.writeFileSync(path.join(host, 'vase.png'), 'a picture of the scanned vase\n');
  const uploader = (...args) => execFileSync(uploaderPath,
    ['--workdir', host, '--file-url', `${collector.url}/up`, ...args], { stdio: 'pipe' });
  // A record is due once it is three seconds older than the uploader's start.
  await waitFor('the demo records to go up', () => {
    try { uploader('upload'); } catch (failed) { /* some not due yet */ }
    return fs.readdirSync(path.join(host, 'keploinfo')).length === 0;
  }, 30000);
  uploader('send-file', path.join(host, 'vase.png'));
  const demo = { usage: 1, scan: 1, calibration: 1, share: 1, score: 1, feedback: 1 };

  const posted = [...Array.from({ length: 1500 }, (_, i) => generated(1500 + i)), hostile];
  for (const record of posted) {
    const response = await fetch(`${collector.url}/dtta?type=${record.type}`, {
      method: 'POST', headers: { 'X-Auth-AppID': record.app, 'Content-Type': 'application/json' }, body: JSON.stringify(record.body) });
    assert.equal(await response.text(), '{"status":"success"}');
  }

  const expected = { ...demo };
  for (const record of [...stored, ...posted]) expected[record.type] = (expected[record.type] || 0) + 1;
  const total = Object.values(expected).reduce((a, b) => a + b);
  // information_uploader sends with the release id (test=0).
  const release = Object.values(demo).reduce((a, b) => a + b) +
    [...stored, ...posted].filter((record) => record.app === releaseApp).length;

  const browser = await chromium.launch({
    executablePath: browserPath,
    // Playwright gives the browser a fresh profile of its own (--user-data-dir).
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  try {
    const page = await browser.newPage({ viewport: { width: 1400, height: 1000 } });
    const problems = [];
    page.on('console', (message) => { if (message.type() === 'error') problems.push(message.text()); });
    page.on('pageerror', (error) => problems.push(error.message));
    await page.goto(`${collector.url}/`);
    const text = (selector) => page.locator(selector).first().textContent();
    const shows = (selector, wanted) => page.waitForFunction(
      ([s, w]) => document.querySelector(s)?.textContent === w, [selector, wanted], { timeout: 15000 })
      .catch(async (error) => {
        const [shown, status] = await Promise.all([text(selector), text('#status')]);
        throw new Error(`${selector} shows "${shown}", not "${wanted}" (status: ${status}): ${error.message}`);
      });

    await check('the totals per type are those sent', async () => {
      await shows('#record-total', String(total));
      const totals = await page.locator('#totals tbody tr').evaluateAll(
        (rows) => rows.map((row) => [row.cells[0].textContent, Number(row.cells[1].textContent)]));
      assert.deepEqual(Object.fromEntries(totals), expected);
    });

    await check('every chart is drawn, with the counts sent', async () => {
      const charts = await page.locator('canvas').evaluateAll((canvases) => canvases.map((canvas) => {
        const pixels = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
        let drawn = 0;
        for (let i = 3; i < pixels.length; i += 4) if (pixels[i]) ++drawn;
        const data = Chart.getChart(canvas).data.datasets.flatMap((set) => set.data);
        return { id: canvas.id, drawn, sum: data.reduce((a, b) => a + b, 0) };
      }));
      assert.equal(charts.length, 11);
      for (const chart of charts) assert.ok(chart.drawn > 1000 && chart.sum > 0, JSON.stringify(chart));
      const sum = (id) => charts.find((chart) => chart.id === id).sum;
      assert.equal(sum('chart-days'), total);
      assert.equal(sum('facet-os'), expected.usage);  // one operating system each
      assert.equal(sum('chart-scores'), expected.score);
    });

    await check('a click shows the record\'s JSON, indented', async () => {
      await page.locator('#record-rows tr').first().click();
      await page.waitForFunction(() => document.querySelector('#record-json').textContent !== '');
      assert.equal(await text('#record-json'), JSON.stringify(hostile.body, null, 2));
    });

    await check('texts from records stay text: no element, no script', async () => {
      assert.equal(await page.evaluate(() => window.__pwned), undefined);
      assert.equal(await page.locator('img, svg, a[href^="javascript"], script:not([src])').count(), 0);
      assert.match(await text('#feedback-list'), /<script>window.__pwned=1<\/script>/);
      assert.match(await text('#record-rows'), /"><svg onload="window.__pwned=1">/);
    });

    await check('the type filter counts the records of that type', async () => {
      await page.selectOption('#type', 'score');
      await shows('#record-count', `${expected.score} records`);
      assert.deepEqual(await page.locator('#totals tbody td:first-child').allTextContents(), ['score']);
      await page.selectOption('#type', '');
    });

    await check('the application filter counts the records of that application', async () => {
      await page.selectOption('#app', releaseApp);
      await shows('#record-count', `${release} records`);
      await page.selectOption('#app', '');
    });

    await check('the time filter leaves out the records received days ago', async () => {
      await page.selectOption('#range', 'day');
      await shows('#record-count', `${total - stored.length} records`);
      await page.selectOption('#range', 'all');
      await shows('#record-count', `${total} records`);
    });

    await check('the uploaded file is listed, with a link that downloads it', async () => {
      const link = page.locator('#file-rows a').first();
      assert.equal(await link.textContent(), 'vase.png');
      const download = await fetch(collector.url + await link.getAttribute('href'));
      assert.equal(await download.text(), 'a picture of the scanned vase\n');
    });

    await page.screenshot({ path: screenshot, fullPage: true });
    await check('nothing went wrong in the page', () => assert.deepEqual(problems, []));
  } finally {
    await browser.close();
  }
  await check('the collector stops cleanly (under the sanitizers: nothing leaked)', async () => {
    assert.equal(await stop(collector), 0, collector.output.slice(-3000));
  });
  console.log(`screenshot: ${screenshot}\n${checks} passed, 0 failed`);
}

const timeout = setTimeout(() => { console.error('the test took over three minutes'); process.exit(1); }, 180000);
main().catch((error) => {
  console.error(error);
  process.exitCode = 1;
}).finally(() => {
  clearTimeout(timeout);
  for (const child of children) if (child.exitCode === null) child.kill('SIGKILL');
  fs.rmSync(work, { recursive: true, force: true });
});
