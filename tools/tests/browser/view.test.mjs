// dofra view's page in headless Debian chromium: focus by click, a slider,
// an overlay, the split and the flip key, the readout, the settings kept in
// the URL, and the PNG export against the `dofra blur` command line the page
// gives. Any console error fails the suite; screenshots go to DOFRA_SHOTS.
//   DOFRA_TOOL=build/tools/dofra DOFRA_SHOTS=build/view-browser node --test
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { chromium } from 'playwright-core';

const tool = path.resolve(process.env.DOFRA_TOOL ?? 'build/tools/dofra');
const shots = path.resolve(process.env.DOFRA_SHOTS ?? 'build/view-browser');
// Without these, chromium reaches for the network and its connections fail
// on a closed machine.
const flags = [
  '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync',
  ...(process.getuid?.() === 0 ? ['--no-sandbox'] : []),
];

const work = fs.mkdtempSync(path.join(os.tmpdir(), 'dofra-view-'));
const errors = [];
let refusalExpected = false; // the browser reports a 400 on the console itself
let server;
let context;
let page;

function startServer() {
  server = spawn(tool, ['view', '--demo', '--size', '640x360', '--out', path.join(work, 'scene')], {
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  return new Promise((resolve, reject) => {
    let text = '';
    server.stdout.on('data', (chunk) => {
      text += chunk;
      const url = text.match(/http:\/\/127\.0\.0\.1:\d+\//);
      if (url) resolve(url[0]);
    });
    server.on('exit', (code) => reject(new Error(`dofra view exited with ${code}: ${text}`)));
  });
}

// The server goes whatever happens to the tests, a time-out included; the
// browser closes with its pipe to this process.
process.on('exit', () => server?.kill('SIGKILL'));
for (const signal of ['SIGINT', 'SIGTERM']) process.on(signal, () => process.exit(1));

before(async () => {
  fs.mkdirSync(shots, { recursive: true });
  const url = await startServer();
  context = await chromium.launchPersistentContext(path.join(work, 'profile'), {
    executablePath: '/usr/bin/chromium',
    headless: true,
    args: flags,
    viewport: { width: 1280, height: 760 },
    acceptDownloads: true,
  });
  page = context.pages()[0] ?? (await context.newPage());
  page.on('console', (m) => {
    if (m.type() !== 'error') return;
    if (refusalExpected && /status of 400/.test(m.text())) return;
    errors.push(m.text());
  });
  page.on('pageerror', (e) => errors.push(String(e)));
  await page.goto(url);
  await page.waitForFunction(() => document.body.dataset.renders === '1');
});

after(async () => {
  await context?.close();
  if (server && server.exitCode === null) {
    const exited = new Promise((resolve) => server.once('exit', resolve));
    server.kill('SIGTERM');
    assert.equal(await exited, 0, 'dofra view stops cleanly on SIGTERM');
  }
  fs.rmSync(work, { recursive: true, force: true });
});

const shot = (name) => page.screenshot({ path: path.join(shots, `${name}.png`) });
const canvasPixels = () => page.locator('#canvas').screenshot();
const renders = () => page.evaluate(() => Number(document.body.dataset.renders));

// A render request that answers, and the page having drawn it.
async function rendered(action, wanted) {
  const before = await renders();
  refusalExpected = true;
  const [response] = await Promise.all([
    page.waitForResponse((r) => r.url().includes('/api/render?') && wanted(new URL(r.url()).searchParams)),
    action(),
  ]);
  assert.equal(response.status(), 200, await response.text());
  await page.waitForFunction((n) => Number(document.body.dataset.renders) > n, before);
  return response.body();
}

// A whole screen pixel inside picture pixel (x, y), at a zoom above 1.
async function screenPoint(x, y) {
  const box = await page.locator('#canvas').boundingBox();
  const z = await page.evaluate(() => view.zoom);
  return { x: Math.ceil(box.x + z.tx + x * z.s + 1e-6), y: Math.ceil(box.y + z.ty + y * z.s + 1e-6) };
}

let firstBody;

test('a click sets the point of focus, and the served picture follows', async () => {
  firstBody = await rendered(() => page.evaluate(() => setValue('level', '2')), (q) => q.get('level') === '2');
  const at = await screenPoint(560, 300); // the floor, near the camera
  const body = await rendered(() => page.mouse.click(at.x, at.y), (q) => q.get('focus') === '560,300');
  assert.equal(await page.textContent('#p-focus'), '560, 300');
  assert.notDeepEqual(body, firstBody);
  assert.match(page.url(), /focus=560%2C300/);
  await shot('focus');
});

test('the level slider asks for a new render', async () => {
  const before = await canvasPixels();
  await rendered(() => page.locator('#s-level').fill('12'), (q) => q.get('level') === '12');
  assert.equal(await page.inputValue('#p-level'), '12');
  assert.notDeepEqual(await canvasPixels(), before);
  assert.match(await page.inputValue('#command'), / --level 12 /);
});

test('a refused value shows the reason and the page keeps working', async () => {
  const [response] = await Promise.all([
    page.waitForResponse((r) => r.url().includes('calib_b=0')),
    page.locator('#p-calib_b').fill('0').then(() => page.locator('#p-calib_b').press('Enter')),
  ]);
  assert.equal(response.status(), 400);
  assert.match(await page.textContent('#error'), /B must not be 0/);
  await rendered(() => page.click('#param-calib_b .reset'), (q) => q.get('calib_b') !== '0');
  assert.equal(await page.isHidden('#error'), true);
  refusalExpected = false;
});

test('overlays and the split change the picture, and the flip key works', async () => {
  const plain = await canvasPixels();
  await page.check('#ov-weights');
  const weights = await canvasPixels();
  assert.notDeepEqual(weights, plain);
  await page.check('#ov-grid');
  await page.check('#ov-edges');
  await shot('overlays');
  await page.uncheck('#ov-weights');
  await page.uncheck('#ov-grid');
  await page.uncheck('#ov-edges');
  assert.deepEqual(await canvasPixels(), plain);

  await page.click('#compare button[data-mode=split]');
  await page.locator('#split').fill('400');
  const split = await canvasPixels();
  assert.notDeepEqual(split, plain);
  assert.match(page.url(), /show=split/);
  assert.match(page.url(), /split=0\.400/);
  await shot('split');
  await page.evaluate(() => document.activeElement.blur()); // keys go to the page, not the slider
  await page.keyboard.press('f');
  const a = await canvasPixels();
  assert.notDeepEqual(a, split);
  await page.keyboard.press('f');
  assert.deepEqual(await canvasPixels(), plain);
});

test('the readout shows Y/U/V, disparity and weight under the cursor', async () => {
  const at = await screenPoint(20, 20); // far skyline: fully blurred
  await page.mouse.move(at.x, at.y);
  assert.equal(await page.textContent('#r-pos'), 'x 20, y 20');
  assert.match(await page.textContent('#r-in'), /^\d+ \d+ \d+$/);
  assert.match(await page.textContent('#r-out'), /^\d+ \d+ \d+$/);
  assert.match(await page.textContent('#r-disp'), /^\d+ \(cell 2,2\)$/);
  assert.match(await page.textContent('#r-weight'), /^\d+\/1024$/);
  assert.match(await page.textContent('#t-blur-median'), /^\d+\.\d{3}$/);
  assert.match(await page.textContent('#frame-info'), /^640x360 at scale 4, \w[\w.]* kernels \(detected\)/);
});

test('zoom and pan move the view and stay in the URL', async () => {
  const at = await screenPoint(320, 180);
  await page.mouse.move(at.x, at.y);
  await page.mouse.wheel(0, -300);
  const zoom = await page.evaluate(() => view.zoom.s);
  assert.ok(zoom > 1, `zoomed to ${zoom}`);
  await page.mouse.down();
  await page.mouse.move(at.x + 60, at.y + 30, { steps: 4 });
  await page.mouse.up();
  assert.match(page.url(), /zoom=/);
  await shot('zoomed');
  await page.keyboard.press('0');
});

test('a reload keeps the settings', async () => {
  await page.reload();
  await page.waitForFunction(() => document.body.dataset.renders === '1');
  assert.equal(await page.inputValue('#p-level'), '12');
  assert.equal(await page.textContent('#p-focus'), '560, 300');
  assert.match(page.url(), /show=b|show=split/);
});

test('the exported PNG is byte for byte what the exported command writes', async () => {
  await page.locator('#s-scale').fill('6');
  await page.waitForFunction(() => view.result.info.values.scale === '6');
  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#export-png')]);
  const exported = path.join(work, 'exported.png');
  await download.saveAs(exported);
  const command = await page.inputValue('#command');
  assert.ok(command.startsWith(`${tool} blur `), command);
  const output = command.match(/ -o (\S+)$/)[1];
  assert.equal(download.suggestedFilename(), output);
  execFileSync('sh', ['-c', command], { cwd: work, stdio: 'ignore' });
  assert.ok(fs.readFileSync(path.join(work, output)).equals(fs.readFileSync(exported)));
  await shot('view');
});

// Each opt-in switch: a new picture, its option in the command line, and the
// A side able to show the default.
for (const [key, option] of [['refine', / --refine /], ['no_bleed', / --no-bleed --pullback 2 /]]) {
  test(`the ${key} switch renders anew, reaches the command line, and A can show the default`, async () => {
    const before = await canvasPixels();
    await rendered(() => page.check(`#p-${key}`), (q) => q.get(key) === '1');
    assert.notDeepEqual(await canvasPixels(), before);
    assert.match(await page.inputValue('#command'), option);
    assert.equal(await page.locator('#a-side option[value="default"]').count(), 1);
    await shot(key.replace('_', '-'));
    await rendered(() => page.uncheck(`#p-${key}`), (q) => q.get(key) === '0');
  });
}

test('no console errors', () => {
  assert.deepEqual(errors, []);
});
