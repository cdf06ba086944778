'use strict';
// dofra view's page. The server describes its settings in one table
// (/api/session); the controls are made from it, every change asks the
// server for a new render (/api/render), and the picture is drawn here with
// zoom, pan, an A/B split, overlays and readouts under the cursor.

const $ = (id) => document.getElementById(id);

const view = {
  session: null,
  params: [],
  values: {},    // setting key -> text, as sent to the server
  defaults: {},  // the command line's values
  width: 0,
  height: 0,
  input: null,   // {canvas, disparity}
  result: null,  // {info, canvas, weights, weightCanvas, source, output, frameWidth, frameHeight}
  resultA: null, // the default side, when A shows the opt-in modes off
  mode: 'b',     // 'a', 'split' or 'b'
  aSide: 'input',
  split: 0.5,
  overlays: { weights: false, grid: false, edges: false },
  opacity: 0.6,
  edgeStep: 4,
  zoom: { s: 1, tx: 0, ty: 0, fit: true },
  renders: 0,
  paths: { grid: null, edges: null },
};

// ---------- server data ----------

// A packed response: a JSON header (its length first), then the planes.
function unpack(buffer) {
  const length = new DataView(buffer).getUint32(0, true);
  const text = new TextDecoder().decode(new Uint8Array(buffer, 4, length));
  return { info: JSON.parse(text), offset: 4 + length };
}

function query(values) {
  const q = new URLSearchParams();
  for (const p of view.params) q.set(p.key, values[p.key]);
  return q.toString();
}

function canvasOf(rgba, width, height) {
  const canvas = document.createElement('canvas');
  canvas.width = width;
  canvas.height = height;
  canvas.getContext('2d').putImageData(new ImageData(rgba, width, height), 0, 0);
  return canvas;
}

// A perceptual blue-green-yellow ramp (viridis stops), 0 sharp .. 1024 blurred.
const RAMP = (() => {
  const stops = [[68, 1, 84], [59, 82, 139], [33, 145, 140], [94, 201, 98], [253, 231, 37]];
  const lut = new Uint8Array(1025 * 3);
  for (let w = 0; w <= 1024; w++) {
    const t = (w / 1024) * (stops.length - 1);
    const i = Math.min(Math.floor(t), stops.length - 2);
    const f = t - i;
    for (let c = 0; c < 3; c++) lut[3 * w + c] = stops[i][c] + (stops[i + 1][c] - stops[i][c]) * f;
  }
  return lut;
})();

function weightCanvas(weights, width, height) {
  const rgba = new Uint8ClampedArray(width * height * 4);
  for (let i = 0; i < weights.length; i++) {
    const w = Math.min(weights[i], 1024);
    rgba[4 * i] = RAMP[3 * w];
    rgba[4 * i + 1] = RAMP[3 * w + 1];
    rgba[4 * i + 2] = RAMP[3 * w + 2];
    rgba[4 * i + 3] = 255;
  }
  return canvasOf(rgba, width, height);
}

async function fetchRender(values) {
  const response = await fetch('/api/render?' + query(values));
  if (response.status === 409) return null; // replaced by a newer request
  if (!response.ok) throw new Error((await response.text()).trim());
  const buffer = await response.arrayBuffer();
  const { info, offset } = unpack(buffer);
  const n = view.width * view.height;
  const fw = info.frame.width;
  const fh = info.frame.height;
  const nv21 = fw * fh + fw * (fh >> 1);
  const weights = new Uint16Array(buffer, offset + 4 * n, n);
  return {
    info,
    canvas: canvasOf(new Uint8ClampedArray(buffer, offset, 4 * n), view.width, view.height),
    weights,
    weightCanvas: weightCanvas(weights, view.width, view.height),
    source: new Uint8Array(buffer, offset + 6 * n, nv21),
    output: new Uint8Array(buffer, offset + 6 * n + nv21, nv21),
    frameWidth: fw,
  };
}

// One render in flight at a time; changes meanwhile collapse into one more.
let inFlight = false;
let pending = false;

function requestRender() {
  saveUrl();
  if (inFlight) {
    pending = true;
    return;
  }
  runRender();
}

async function runRender() {
  inFlight = true;
  pending = false;
  setState('rendering', 'busy');
  const values = { ...view.values };
  try {
    const result = await fetchRender(values);
    if (result) {
      view.result = result;
      view.resultA = view.aSide === 'default' ? await fetchRender(defaultSide(values)) : null;
      view.renders++;
      document.body.dataset.renders = String(view.renders);
      showResult(values);
    }
    showError('');
    setState(`ready · ${view.renders} renders`, '');
  } catch (error) {
    showError(error.message);
    setState('refused', 'bad');
  }
  inFlight = false;
  if (pending) runRender();
}

// The same settings with every opt-in quality switch off.
function defaultSide(values) {
  const out = { ...values };
  for (const p of view.params) if (p.opt_in && p.kind === 'flag') out[p.key] = '0';
  return out;
}

// ---------- controls ----------

function logPosition(p, v) {
  const lo = Math.log1p(p.min);
  const hi = Math.log1p(p.max);
  return Math.round(((Math.log1p(Math.max(p.min, Math.min(p.max, v))) - lo) / (hi - lo)) * 1000);
}

function logValue(p, position) {
  const lo = Math.log1p(p.min);
  const hi = Math.log1p(p.max);
  return Math.round(Math.expm1(lo + (position / 1000) * (hi - lo)));
}

function element(tag, props, children) {
  const e = Object.assign(document.createElement(tag), props || {});
  for (const child of children || []) e.append(child);
  return e;
}

function buildControls() {
  const box = $('params');
  for (const p of view.params) {
    const row = element('div', { className: `param ${p.kind}`, id: `param-${p.key}` });
    row.append(element('span', { className: 'label', textContent: p.label, title: p.option }));
    const reset = element('button', { className: 'reset', textContent: '↺', title: `reset to ${p.default}` });
    reset.addEventListener('click', () => setValue(p.key, p.default));
    if (p.kind === 'point') {
      row.append(element('span', { className: 'value', id: `p-${p.key}` }));
    } else if (p.kind === 'flag') {
      const box2 = element('input', { type: 'checkbox', id: `p-${p.key}` });
      box2.addEventListener('change', () => setValue(p.key, box2.checked ? '1' : '0'));
      row.append(box2, element('span'));
    } else {
      const log = p.kind === 'log';
      const slider = element('input', {
        type: 'range', id: `s-${p.key}`,
        min: log ? 0 : p.min, max: log ? 1000 : p.max, step: log ? 1 : p.step,
        title: `${p.option} ${p.min}..${p.max}`,
      });
      const number = element('input', { type: 'number', id: `p-${p.key}`, step: p.step });
      slider.addEventListener('input', () => {
        setValue(p.key, String(log ? logValue(p, Number(slider.value)) : slider.value));
      });
      number.addEventListener('change', () => setValue(p.key, number.value.trim()));
      row.append(slider, number);
    }
    row.append(reset);
    box.append(row);
  }
  if (view.params.some((p) => p.opt_in)) {
    $('a-side').append(element('option', { value: 'default', textContent: 'default (opt-in off)' }));
  }
}

function showValues() {
  for (const p of view.params) {
    const v = view.values[p.key];
    const field = $(`p-${p.key}`);
    if (p.kind === 'point') field.textContent = v.replace(',', ', ');
    else if (p.kind === 'flag') field.checked = v === '1';
    else {
      if (document.activeElement !== field) field.value = v;
      const slider = $(`s-${p.key}`);
      slider.value = p.kind === 'log' ? logPosition(p, Number(v)) : v;
    }
    $(`param-${p.key}`).querySelector('.reset').classList.toggle('changed', v !== p.default);
  }
}

function setValue(key, value) {
  if (view.values[key] === value) return;
  view.values[key] = value;
  showValues();
  requestRender();
}

function showResult(values) {
  const info = view.result.info;
  for (const [name, t] of Object.entries(info.times)) {
    for (const stat of ['last', 'median', 'p90']) {
      $(`t-${name}-${stat}`).textContent = t.count ? t[stat].toFixed(3) : '–';
    }
  }
  $('time-count').textContent = `ms, last ${info.times.blur.count} renders`;
  const padded = info.frame.width !== view.width || info.frame.height !== view.height;
  $('frame-info').textContent =
    `${info.frame.width}x${info.frame.height} at scale ${values.scale}, ${view.session.kernels} kernels (detected)` +
    (padded ? ` · picture ${view.width}x${view.height} padded` : '');
  $('command').value = info.command;
  $('export-png').href = '/api/export.png?' + query(values);
  draw();
}

function showError(text) {
  $('error').hidden = !text;
  $('error').textContent = text;
}

function setState(text, kind) {
  $('state').textContent = text;
  $('state').className = `state ${kind}`;
}

// ---------- URL: settings in the query, the view in the hash ----------

function saveUrl() {
  const q = new URLSearchParams();
  for (const p of view.params) if (view.values[p.key] !== p.default) q.set(p.key, view.values[p.key]);
  const h = new URLSearchParams();
  h.set('show', view.mode);
  if (view.aSide !== 'input') h.set('a', view.aSide);
  h.set('split', view.split.toFixed(3));
  const ov = Object.keys(view.overlays).filter((k) => view.overlays[k]);
  if (ov.length) h.set('ov', ov.join(','));
  h.set('opacity', String(Math.round(view.opacity * 100)));
  h.set('edge', String(view.edgeStep));
  if (!view.zoom.fit) h.set('zoom', [view.zoom.s.toFixed(4), view.zoom.tx.toFixed(1), view.zoom.ty.toFixed(1)].join(','));
  const search = q.toString();
  history.replaceState(null, '', `${location.pathname}${search ? '?' + search : ''}#${h}`);
}

function loadUrl() {
  const q = new URLSearchParams(location.search);
  for (const p of view.params) if (q.has(p.key)) view.values[p.key] = q.get(p.key);
  const h = new URLSearchParams(location.hash.slice(1));
  if (['a', 'split', 'b'].includes(h.get('show'))) view.mode = h.get('show');
  if (h.get('a') === 'default' && view.params.some((p) => p.opt_in)) view.aSide = 'default';
  if (h.has('split')) view.split = clamp(Number(h.get('split')) || 0, 0, 1);
  for (const k of (h.get('ov') || '').split(',')) if (k in view.overlays) view.overlays[k] = true;
  if (h.has('opacity')) view.opacity = clamp(Number(h.get('opacity')) / 100 || 0, 0, 1);
  if (h.has('edge')) view.edgeStep = clamp(Math.round(Number(h.get('edge'))) || 4, 1, 255);
  const zoom = (h.get('zoom') || '').split(',').map(Number);
  if (zoom.length === 3 && zoom.every(Number.isFinite) && zoom[0] > 0) {
    view.zoom = { s: zoom[0], tx: zoom[1], ty: zoom[2], fit: false };
  }
}

function clamp(v, lo, hi) {
  return Math.max(lo, Math.min(hi, v));
}

function showViewControls() {
  for (const b of $('compare').querySelectorAll('button')) b.classList.toggle('on', b.dataset.mode === view.mode);
  $('a-side').value = view.aSide;
  $('split').value = Math.round(view.split * 1000);
  $('split-value').textContent = `${Math.round(view.split * 100)}%`;
  for (const k of Object.keys(view.overlays)) $(`ov-${k}`).checked = view.overlays[k];
  $('opacity').value = Math.round(view.opacity * 100);
  $('opacity-value').textContent = `${Math.round(view.opacity * 100)}%`;
  $('edge-step').value = view.edgeStep;
  $('tag-a').hidden = view.mode === 'b';
  $('tag-b').hidden = view.mode === 'a';
  $('tag-a').textContent = `A ${view.aSide === 'input' ? 'input' : 'default'}`;
  $('tag-b').textContent = 'B result';
}

function viewChanged() {
  showViewControls();
  saveUrl();
  draw();
}

// ---------- drawing ----------

function fit() {
  const c = $('canvas');
  const s = Math.min(c.clientWidth / view.width, c.clientHeight / view.height);
  view.zoom = {
    s, fit: true,
    tx: (c.clientWidth - view.width * s) / 2,
    ty: (c.clientHeight - view.height * s) / 2,
  };
}

function zoomAt(s, x, y) {
  const z = view.zoom;
  const k = clamp(s, 0.05, 64) / z.s;
  view.zoom = { s: z.s * k, tx: x - (x - z.tx) * k, ty: y - (y - z.ty) * k, fit: false };
  viewChanged();
}

// The map's cells: a lattice over the picture, dW x dH.
function gridPath() {
  const { width: W, height: H } = view;
  const dw = view.session.disparity.width;
  const dh = view.session.disparity.height;
  const path = new Path2D();
  for (let i = 0; i <= dw; i++) { path.moveTo((i * W) / dw, 0); path.lineTo((i * W) / dw, H); }
  for (let j = 0; j <= dh; j++) { path.moveTo(0, (j * H) / dh); path.lineTo(W, (j * H) / dh); }
  return path;
}

// Cell sides across which the resampled disparity steps by edgeStep or more.
function edgePath() {
  const { width: W, height: H } = view;
  const dw = view.session.disparity.width;
  const dh = view.session.disparity.height;
  const d = view.input.disparity;
  const path = new Path2D();
  for (let j = 0; j < dh; j++) {
    for (let i = 0; i < dw; i++) {
      const v = d[j * dw + i];
      if (i + 1 < dw && Math.abs(v - d[j * dw + i + 1]) >= view.edgeStep) {
        path.moveTo(((i + 1) * W) / dw, (j * H) / dh);
        path.lineTo(((i + 1) * W) / dw, ((j + 1) * H) / dh);
      }
      if (j + 1 < dh && Math.abs(v - d[(j + 1) * dw + i]) >= view.edgeStep) {
        path.moveTo((i * W) / dw, ((j + 1) * H) / dh);
        path.lineTo(((i + 1) * W) / dw, ((j + 1) * H) / dh);
      }
    }
  }
  return path;
}

function sideA() {
  return view.aSide === 'default' && view.resultA ? view.resultA.canvas : view.input.canvas;
}

function draw() {
  const c = $('canvas');
  const dpr = window.devicePixelRatio || 1;
  const cw = Math.round(c.clientWidth * dpr);
  const ch = Math.round(c.clientHeight * dpr);
  if (c.width !== cw || c.height !== ch) { c.width = cw; c.height = ch; }
  if (view.zoom.fit) fit();
  const ctx = c.getContext('2d');
  ctx.setTransform(1, 0, 0, 1, 0, 0);
  ctx.clearRect(0, 0, cw, ch);
  if (!view.result || !view.input) return;
  const z = view.zoom;
  $('r-zoom').textContent = `zoom ${Math.round(z.s * 100)}%${z.fit ? ' (fit)' : ''}`;
  ctx.setTransform(dpr * z.s, 0, 0, dpr * z.s, dpr * z.tx, dpr * z.ty);
  ctx.imageSmoothingEnabled = z.s < 1;
  const splitX = view.split * view.width;
  if (view.mode === 'a') ctx.drawImage(sideA(), 0, 0);
  else ctx.drawImage(view.result.canvas, 0, 0);
  if (view.mode === 'split') {
    ctx.save();
    ctx.beginPath();
    ctx.rect(0, 0, splitX, view.height);
    ctx.clip();
    ctx.drawImage(sideA(), 0, 0);
    ctx.restore();
  }
  if (view.overlays.weights) {
    ctx.globalAlpha = view.opacity;
    ctx.drawImage(view.result.weightCanvas, 0, 0);
    ctx.globalAlpha = 1;
  }
  ctx.lineWidth = 1 / z.s;
  if (view.overlays.grid) {
    view.paths.grid = view.paths.grid || gridPath();
    ctx.strokeStyle = 'rgba(255, 255, 255, 0.28)';
    ctx.stroke(view.paths.grid);
  }
  if (view.overlays.edges) {
    view.paths.edges = view.paths.edges || edgePath();
    ctx.strokeStyle = '#ff4fd8';
    ctx.lineWidth = 2 / z.s;
    ctx.stroke(view.paths.edges);
  }
  ctx.setTransform(dpr, 0, 0, dpr, 0, 0);
  if (view.mode === 'split') drawSplit(ctx, z.tx + splitX * z.s, z);
  drawFocus(ctx, z);
}

// The split line, with a grip to drag it by.
function drawSplit(ctx, x, z) {
  const top = Math.max(z.ty, 0);
  const bottom = Math.min(z.ty + view.height * z.s, ctx.canvas.clientHeight);
  ctx.fillStyle = 'rgba(255, 255, 255, 0.85)';
  ctx.fillRect(x - 0.5, top, 1, bottom - top);
  const y = (top + bottom) / 2;
  ctx.beginPath();
  ctx.arc(x, y, 9, 0, 2 * Math.PI);
  ctx.fillStyle = 'rgba(30, 31, 33, 0.85)';
  ctx.fill();
  ctx.strokeStyle = 'rgba(255, 255, 255, 0.85)';
  ctx.lineWidth = 1;
  ctx.stroke();
  ctx.beginPath();
  ctx.moveTo(x - 2, y - 4); ctx.lineTo(x - 6, y); ctx.lineTo(x - 2, y + 4);
  ctx.moveTo(x + 2, y - 4); ctx.lineTo(x + 6, y); ctx.lineTo(x + 2, y + 4);
  ctx.stroke();
}

function drawFocus(ctx, z) {
  const [fx, fy] = view.values.focus.split(',').map(Number);
  const x = z.tx + (fx + 0.5) * z.s;
  const y = z.ty + (fy + 0.5) * z.s;
  ctx.lineWidth = 3;
  ctx.strokeStyle = 'rgba(0, 0, 0, 0.7)';
  ctx.beginPath();
  ctx.arc(x, y, 9, 0, 2 * Math.PI);
  ctx.moveTo(x - 15, y); ctx.lineTo(x - 5, y); ctx.moveTo(x + 5, y); ctx.lineTo(x + 15, y);
  ctx.moveTo(x, y - 15); ctx.lineTo(x, y - 5); ctx.moveTo(x, y + 5); ctx.lineTo(x, y + 15);
  ctx.stroke();
  ctx.lineWidth = 1.25;
  ctx.strokeStyle = '#ffd21f';
  ctx.stroke();
}

function drawLegend() {
  const c = $('legend');
  const ctx = c.getContext('2d');
  for (let x = 0; x < c.width; x++) {
    const w = Math.round((x / (c.width - 1)) * 1024);
    ctx.fillStyle = `rgb(${RAMP[3 * w]}, ${RAMP[3 * w + 1]}, ${RAMP[3 * w + 2]})`;
    ctx.fillRect(x, 0, 1, c.height);
  }
}

// ---------- pointer and keys ----------

function imagePoint(event) {
  const r = $('canvas').getBoundingClientRect();
  const sx = event.clientX - r.left;
  const sy = event.clientY - r.top;
  const z = view.zoom;
  return { sx, sy, x: Math.floor((sx - z.tx) / z.s), y: Math.floor((sy - z.ty) / z.s) };
}

function yuv(nv21, fw, fh, x, y) {
  const vu = fw * fh + (y >> 1) * fw + (x & ~1);
  return `${nv21[y * fw + x]} ${nv21[vu + 1]} ${nv21[vu]}`;
}

function readout(p) {
  const inside = p.x >= 0 && p.y >= 0 && p.x < view.width && p.y < view.height;
  $('r-pos').textContent = inside ? `x ${p.x}, y ${p.y}` : 'x –, y –';
  const r = view.result;
  if (!inside || !r) {
    for (const id of ['r-in', 'r-out', 'r-disp', 'r-weight']) $(id).textContent = '–';
    return;
  }
  const fh = r.info.frame.height;
  $('r-in').textContent = yuv(r.source, r.frameWidth, fh, p.x, p.y);
  $('r-out').textContent = yuv(r.output, r.frameWidth, fh, p.x, p.y);
  const dw = view.session.disparity.width;
  const dh = view.session.disparity.height;
  const i = Math.floor((p.x * dw) / view.width);
  const j = Math.floor((p.y * dh) / view.height);
  $('r-disp').textContent = `${view.input.disparity[j * dw + i]} (cell ${i},${j})`;
  $('r-weight').textContent = `${r.weights[p.y * view.width + p.x]}/1024`;
}

function onSplitLine(p) {
  if (view.mode !== 'split') return false;
  return Math.abs(p.sx - (view.zoom.tx + view.split * view.width * view.zoom.s)) < 6;
}

function bindPointer() {
  const c = $('canvas');
  let press = null;
  c.addEventListener('mousedown', (e) => {
    if (e.button !== 0) return;
    const p = imagePoint(e);
    press = { p, tx: view.zoom.tx, ty: view.zoom.ty, moved: false, split: onSplitLine(p) };
  });
  window.addEventListener('mousemove', (e) => {
    const p = imagePoint(e);
    if (press) {
      const dx = p.sx - press.p.sx;
      const dy = p.sy - press.p.sy;
      if (Math.abs(dx) + Math.abs(dy) > 3) press.moved = true;
      if (press.split) {
        view.split = clamp((p.sx - view.zoom.tx) / (view.zoom.s * view.width), 0, 1);
        viewChanged();
      } else if (press.moved) {
        c.classList.add('panning');
        view.zoom = { ...view.zoom, tx: press.tx + dx, ty: press.ty + dy, fit: false };
        viewChanged();
      }
    } else {
      c.classList.toggle('on-split', onSplitLine(p));
    }
    if (e.target === c) readout(p);
  });
  window.addEventListener('mouseup', (e) => {
    if (!press) return;
    const p = imagePoint(e);
    if (!press.moved && !press.split && e.target === c &&
        p.x >= 0 && p.y >= 0 && p.x < view.width && p.y < view.height) {
      setValue('focus', `${p.x},${p.y}`);
    }
    press = null;
    c.classList.remove('panning');
  });
  c.addEventListener('wheel', (e) => {
    e.preventDefault();
    const p = imagePoint(e);
    zoomAt(view.zoom.s * Math.pow(1.2, -e.deltaY / 100), p.sx, p.sy);
  }, { passive: false });
}

function toggleOverlay(name) {
  view.overlays[name] = !view.overlays[name];
  viewChanged();
}

function setMode(mode) {
  view.mode = mode;
  viewChanged();
}

function bindKeys() {
  window.addEventListener('keydown', (e) => {
    if (e.target.closest('input, textarea, select') || e.ctrlKey || e.metaKey || e.altKey) return;
    const actions = {
      f: () => setMode(view.mode === 'a' ? 'b' : 'a'),
      s: () => setMode(view.mode === 'split' ? 'b' : 'split'),
      w: () => toggleOverlay('weights'),
      g: () => toggleOverlay('grid'),
      e: () => toggleOverlay('edges'),
      0: () => { view.zoom.fit = true; viewChanged(); },
      1: () => { const c = $('canvas'); zoomAt(1, c.clientWidth / 2, c.clientHeight / 2); },
    };
    const action = actions[e.key.toLowerCase()];
    if (action) {
      e.preventDefault();
      action();
    }
  });
}

function bindViewControls() {
  for (const b of $('compare').querySelectorAll('button')) b.addEventListener('click', () => setMode(b.dataset.mode));
  $('a-side').addEventListener('change', () => {
    view.aSide = $('a-side').value;
    viewChanged();
    requestRender();
  });
  $('split').addEventListener('input', () => {
    view.split = Number($('split').value) / 1000;
    if (view.mode !== 'split') view.mode = 'split';
    viewChanged();
  });
  for (const k of Object.keys(view.overlays)) {
    $(`ov-${k}`).addEventListener('change', () => {
      view.overlays[k] = $(`ov-${k}`).checked;
      viewChanged();
    });
  }
  $('opacity').addEventListener('input', () => {
    view.opacity = Number($('opacity').value) / 100;
    viewChanged();
  });
  $('edge-step').addEventListener('change', () => {
    view.edgeStep = clamp(Math.round(Number($('edge-step').value)) || 1, 1, 255);
    view.paths.edges = null;
    viewChanged();
  });
  $('reset-all').addEventListener('click', () => {
    view.values = { ...view.defaults };
    showValues();
    requestRender();
  });
  $('copy-command').addEventListener('click', () => {
    const text = $('command').value;
    const select = () => { $('command').select(); document.execCommand('copy'); };
    if (navigator.clipboard) navigator.clipboard.writeText(text).catch(select);
    else select();
  });
  window.addEventListener('resize', draw);
}

// ---------- start ----------

async function start() {
  const session = await (await fetch('/api/session')).json();
  view.session = session;
  view.params = session.params;
  view.width = session.picture.width;
  view.height = session.picture.height;
  for (const p of view.params) view.defaults[p.key] = view.values[p.key] = p.default;
  const name = session.picture.path.split('/').pop();
  const map = session.disparity;
  $('source').textContent =
    `${name} ${view.width}x${view.height} · disparity ${map.width}x${map.height}` +
    (map.filled ? ` · ${map.filled} unknown filled` : '');
  document.title = `${name} · dofra view`;
  buildControls();
  loadUrl();
  showValues();
  showViewControls();
  drawLegend();
  bindPointer();
  bindKeys();
  bindViewControls();
  const buffer = await (await fetch('/api/input')).arrayBuffer();
  const { offset } = unpack(buffer);
  const n = view.width * view.height;
  view.input = {
    canvas: canvasOf(new Uint8ClampedArray(buffer, offset, 4 * n), view.width, view.height),
    disparity: new Uint8Array(buffer, offset + 4 * n, map.width * map.height),
  };
  requestRender();
}

start().catch((error) => {
  showError(error.message);
  setState('failed', 'bad');
});
